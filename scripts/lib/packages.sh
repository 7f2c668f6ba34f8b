# Sourced by scripts/try, scripts/check and scripts/recording: what they need from the system, and how it gets there.
# shellcheck shell=bash
#
# A need is "TEST:PACKAGE": TEST is a command, or an absolute path (wildcards allowed) that must exist; PACKAGE is the
# Debian package that brings it.

# shellcheck disable=SC2034  # the lists are for the scripts that source this file
build_needs=(g++:g++ cmake:cmake ninja:ninja-build gencat:libc-dev-bin /usr/include/openssl/ssl.h:libssl-dev)
# shellcheck disable=SC2034
check_needs=(
    git:git
    openssl:openssl
    python3:python3
    clang++:clang
    clang-format:clang-format
    clang-tidy:clang-tidy
    readelf:binutils
    '/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a:libclang-rt-dev'
    make:make
    pkg-config:pkgconf
    /usr/include/gtest/gtest.h:libgtest-dev
    /usr/include/gmock/gmock.h:libgmock-dev
    /usr/lib/python3/dist-packages/pytest:python3-pytest
    /usr/lib/python3/dist-packages/xdist:python3-pytest-xdist
    /usr/lib/python3/dist-packages/pexpect:python3-pexpect
    /usr/lib/python3/dist-packages/pyte:python3-pyte
    dpkg-shlibdeps:dpkg-dev
    file:file
    /usr/include/gssapi/gssapi_krb5.h:libkrb5-dev
)
# Checks that these bring are skipped, by name, where they cannot be had.
# shellcheck disable=SC2034
optional_needs=(
    mandoc:mandoc
    shellcheck:shellcheck
    tshark:tshark
    ganesha.nfsd:nfs-ganesha
    '/usr/lib/*/ganesha/libfsalvfs.so:nfs-ganesha-vfs'
    rpcbind:rpcbind
    krb5kdc:krb5-kdc
    kadmin.local:krb5-admin-server
    kinit:krb5-user
    ip:iproute2
    unshare:util-linux
    mkfs.xfs:xfsprogs
    zsh:zsh
    rpmbuild:rpm
    lintian:lintian
)

# What bench/run needs beyond a build.
# shellcheck disable=SC2034
bench_needs=(
    nfs-cat:libnfs-utils
    /usr/include/nfsc/libnfs.h:libnfs-dev
    /usr/include/krb5.h:libkrb5-dev
    krb5kdc:krb5-kdc
    kadmin.local:krb5-admin-server
    kinit:krb5-user
    openssl:openssl
    mkfs.xfs:xfsprogs
    ganesha.nfsd:nfs-ganesha
    '/usr/lib/*/ganesha/libfsalvfs.so:nfs-ganesha-vfs'
    rpcbind:rpcbind
    ip:iproute2
    unshare:util-linux
    /usr/lib/python3/dist-packages/matplotlib:python3-matplotlib
)

# What draws the picture in the README, for scripts/recording.
# shellcheck disable=SC2034
recording_needs=(termtosvg:termtosvg)

have() {
    case $1 in
        /*) compgen -G "$1" >/dev/null ;;
        *) PATH=$PATH:/usr/sbin:/sbin command -v "$1" >/dev/null ;;
    esac
}

# Prints the packages of the needs that are not met, one a line.
missing_packages() {
    local need
    for need in "$@"; do
        have "${need%%:*}" || printf '%s\n' "${need#*:}"
    done | sort -u
}

# Meets the needs given, with apt when run as root on Debian; otherwise says which packages are missing.
# Gives 0 when all needs are met.
meet_needs() {
    local missing
    mapfile -t missing < <(missing_packages "$@")
    [ ${#missing[@]} -eq 0 ] && return 0
    if [ "$(id -u)" -eq 0 ] && have apt-get; then
        printf 'installing %s\n' "${missing[*]}"
        install_packages "${missing[@]}"
        mapfile -t missing < <(missing_packages "$@")
        [ ${#missing[@]} -eq 0 ] && return 0
    fi
    printf 'missing packages: %s\n' "${missing[*]}"
    printf '  as root: apt-get install %s\n' "${missing[*]}"
    return 1
}

# Packages that cannot be had do not keep the others from being installed.
install_packages() {
    local log package
    local install=(apt-get install --yes --quiet --no-install-recommends)
    log=$(mktemp)
    export DEBIAN_FRONTEND=noninteractive
    {
        apt-get update --quiet
        "${install[@]}" "$@" || for package in "$@"; do "${install[@]}" "$package"; done
    } >"$log" 2>&1 </dev/null || tail -n 5 "$log"
    rm -f "$log"
}
