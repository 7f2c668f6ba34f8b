# SPDX-License-Identifier: Apache-2.0
# Completion of tslwnfs for bash; needs nothing but bash itself. Source it, or let bash-completion find it.
#
# The command words and options follow the program's command table; tests/e2e/test_completions.py compares them.

_tslwnfs_commands='copy cp move mv del delete rm cat dd find ls dir mkdir rmdir getattr setattr stat fsstat fsinfo nfsids
    createtslnfstab getserverlist display_server delete_server enablerdma disablerdma mount umount mount_script
    umount_script showmount wnfsenable wnfsdisable save restore iswnfsenabled isPathOnWNFS networkdiscovery
    enum_local_ips enum_local_ipv4 enum_local_ipv6 get_ip_subnet get_ip_subnetv4 get_ip_subnetv6 getsubnetmask help'

# Behind -trace these are commands; any other word is the name of a file.
_tslwnfs_no_files='showmount copy cp find move mv del delete rm cat dd stat mkdir rmdir getattr setattr fsstat fsinfo ls
    dir mount umount -level -log'

# Prints the options of a command.
_tslwnfs_options() {
    local options=''
    case $1 in
        copy | cp | del | delete | rm) options='-i -r' ;;
        move | mv) options='-i' ;;
        mkdir) options='-p' ;;
        stat) options='-f -l -c' ;;
        ls | dir) options='-1 -B -C -l -a -A -t -c -u -d -e -R -S -r -s' ;;
        find) options='-name -path -size -type -maxdepth -follow -print -exec' ;;
        dd | DD) options='-if -of -bs -ibs -obs -count -skip -seek -p' ;;
        mount) options='-f -u -g -s -l -p' ;;
        createtslnfstab) options='-s -lp -em -u -g -v -t -r -c -sd -m' ;;
        display_server | delete_server | disablerdma) options='-s' ;;
        enablerdma) options='-s -p' ;;
        mount_script) options='-e -m' ;;
        umount_script) options='-m' ;;
        showmount) options='-e' ;;
        wnfsdisable) options='-deletetslnfstab -deletetdmdir' ;;
        wnfsenable | save | restore) options='-y' ;;
        isPathOnWNFS) options='-oh -path' ;;
        getsubnetmask) options='-ip' ;;
    esac
    printf '%s' "$options"
}

# Prints what an option of a command takes: a kind of _tslwnfs_offer, or nothing when it takes no value.
_tslwnfs_value() {
    case "$1 $2" in
        *_server\ -s | *rdma\ -s | createtslnfstab\ -s | mount\ -s) echo server ;;
        dd\ -if | dd\ -of | DD\ -if | DD\ -of | isPathOnWNFS\ -path) echo path ;;
        isPathOnWNFS\ -oh) echo directory ;;
        mount_script\ -m | umount_script\ -m) echo mount_point ;;
        find\ -type) echo file_type ;;
        createtslnfstab\ -v) echo version ;;
        find\ -name | find\ -path | find\ -size | find\ -maxdepth) echo text ;;
        find\ -* | mount\ -f) ;;
        stat\ -*[cC]* | dd\ -* | DD\ -* | mount\ -* | createtslnfstab\ -* | enablerdma\ -p) echo text ;;
        mount_script\ -e | getsubnetmask\ -ip) echo text ;;
    esac
}

# Prints what a command's operand is; $2 counts the operands before it.
_tslwnfs_operand() {
    case "$1 $2" in
        copy\ * | cp\ * | move\ * | mv\ *) echo path ;;
        del\ 0 | delete\ 0 | rm\ 0 | cat\ 0 | find\ 0 | ls\ 0 | dir\ 0 | mkdir\ 0 | rmdir\ 0) echo path ;;
        getattr\ 0 | setattr\ 0 | stat\ 0 | fsstat\ 0 | fsinfo\ 0) echo path ;;
        mount\ 1 | umount\ 0) echo mount_point ;;
        showmount\ 0) echo host ;;
        iswnfsenabled\ 0) echo directory ;;
    esac
}

# The program is asked for at most two seconds: a server may be away.
_tslwnfs_ask() {
    timeout 2 "${program/#\~/$HOME}" "$@" 2>/dev/null </dev/null
}

# Prints the server names. The verdict behind them has blanks, a name has none.
_tslwnfs_servers() {
    _tslwnfs_ask getserverlist | grep -v '[[:space:]]'
}

# Prints the mount points of tslnfstab.
_tslwnfs_mount_points() {
    local file=${TESSEL_HOME:-/opt/tessel/wnfs}/dbs/tslnfstab # the packages' home, where no other is named
    local -a words
    local -i i
    [[ -r $file ]] || return 0
    while read -r -a words || ((${#words[@]})); do
        for ((i = 0; i + 1 < ${#words[@]}; i++)); do
            [[ ${words[i]} == '#'* ]] && break
            [[ ${words[i]} == mount: ]] && printf '%s\n' "${words[i + 1]%/}"
        done
    done <"$file"
    return 0
}

# Prints the names of a remote directory that begin with a text. The listing stands between a banner and a verdict, its
# names padded with blanks.
_tslwnfs_remote_names() {
    local directory=$1 base=$2 output name
    local -a lines options=()
    [[ $directory == *[*?]* ]] && return 0 # the program would take it for a wildcard
    [[ $base == .* ]] && options=(-a)
    output=$(_tslwnfs_ask ls "${options[@]}" "$directory") || return 0
    mapfile -t lines <<<"$output"
    for name in "${lines[@]:1:${#lines[@]}-2}"; do
        name=${name%"${name##*[![:blank:]]}"}
        [[ $name == "$base"* && $name != */* && $name != . && $name != ' ..' ]] && printf '%s\n' "$name"
    done
    return 0
}

# Adds the mount points that a path leads to and the remote names that continue it. Fails when no mount plays a part.
_tslwnfs_add_remote() {
    local path=${1//\\/} point name
    path=${path#[\'\"]}
    local directory=${path%/*} found=1
    while IFS= read -r point; do
        if [[ $path == "$point"/* ]]; then
            found=0
            while IFS= read -r name; do
                COMPREPLY+=("$directory/$name")
            done < <(_tslwnfs_remote_names "$directory" "${path##*/}")
            break
        elif [[ -n $path && $point == "$path"* ]]; then
            found=0
            COMPREPLY+=("$point")
        fi
    done < <(_tslwnfs_mount_points)
    return $found
}

# Local names are left to readline, which knows about quotes, unless mounts play a part.
_tslwnfs_offer_paths() {
    local name
    if _tslwnfs_add_remote "$1"; then
        while IFS= read -r name; do
            COMPREPLY+=("$name")
        done < <(compgen -f -- "$1")
        compopt -o filenames -o nospace
    else
        compopt -o default
    fi
}

_tslwnfs_offer_words() {
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$2")
}

_tslwnfs_offer() {
    case $1 in
        command) _tslwnfs_offer_words "$_tslwnfs_commands" "$2" ;;
        trace) _tslwnfs_offer_words "$_tslwnfs_no_files" "$2" && compopt -o default ;;
        level) _tslwnfs_offer_words '0 1 2 3 4' "$2" ;;
        server) _tslwnfs_offer_words "$(_tslwnfs_servers)" "$2" ;;
        host) mapfile -t COMPREPLY < <(compgen -A hostname -W "$(_tslwnfs_servers)" -- "$2") ;;
        mount_point) _tslwnfs_offer_words "$(_tslwnfs_mount_points)" "$2" && compopt -o dirnames ;;
        path) _tslwnfs_offer_paths "$2" ;;
        directory) compopt -o dirnames ;;
        file) compopt -o default ;;
        file_type) _tslwnfs_offer_words 'd f' "$2" ;;
        version) _tslwnfs_offer_words 'nfsv3 nfsv4 nfsv4.1 nfsv4.2' "$2" ;;
        exec) mapfile -t COMPREPLY < <(compgen -c -- "$2") ;;
    esac
}

# Finds the command word (at) behind the global options, which come in one order, and those that may still come
# (globals). Fails when the word to complete belongs to a global option; kind is then what it is.
_tslwnfs_skip_globals() {
    globals='-trace -level -log'
    if [[ ${COMP_WORDS[1]} == -trace ]] && ((COMP_CWORD > 1)); then
        globals='-level -log'
        ((COMP_CWORD == 2)) && kind='trace' && return 1
        at=3
        [[ " ${_tslwnfs_no_files//$'\n'/ } " == *" ${COMP_WORDS[2]} "* ]] && at=2
    fi
    if [[ ${COMP_WORDS[at]} == -level ]] && ((COMP_CWORD > at)); then
        globals='-log'
        ((COMP_CWORD <= at + 4)) && kind='level' && return 1
        at+=5
    fi
    if [[ ${COMP_WORDS[at]} == -log ]] && ((COMP_CWORD > at)); then
        globals=''
        ((COMP_CWORD == at + 1)) && kind='file' && return 1
        at+=2
    fi
    return 0
}

# Options end at the first operand, but for the commands whose options come behind their operands or have no operands.
_tslwnfs_options_may_follow() {
    case $1 in
        find) (($2 >= 1)) ;;
        mount) (($2 >= 2)) ;;
        copy | cp | move | mv | del | delete | rm | ls | dir | mkdir | stat | showmount) (($2 == 0)) ;;
    esac
}

# Completes a word of the command at COMP_WORDS[at].
_tslwnfs_complete_command() {
    local command=${COMP_WORDS[at]}
    local -i i operands=0
    for ((i = at + 1; i < COMP_CWORD; i++)); do
        if [[ -n $kind ]]; then
            kind= # this word was the value
        elif [[ $command == find && ${COMP_WORDS[i]} == -exec ]]; then
            kind='exec'
            break
        elif [[ ${COMP_WORDS[i]} == -* ]]; then
            kind=$(_tslwnfs_value "$command" "${COMP_WORDS[i]}")
        else
            operands+=1
        fi
    done
    if [[ -n $kind ]]; then
        _tslwnfs_offer "$kind" "$cur"
    elif [[ $cur == -* ]]; then
        _tslwnfs_options_may_follow "$command" "$operands" &&
            _tslwnfs_offer_words "$(_tslwnfs_options "$command")" "$cur"
    else
        _tslwnfs_offer "$(_tslwnfs_operand "$command" "$operands")" "$cur"
    fi
}

_tslwnfs() {
    local program=$1 cur=${COMP_WORDS[COMP_CWORD]} kind='' globals
    local -i at=1
    COMPREPLY=()
    if ! _tslwnfs_skip_globals; then
        _tslwnfs_offer "$kind" "$cur"
    elif ((COMP_CWORD > at)); then
        _tslwnfs_complete_command
    elif [[ $cur == -* ]]; then
        _tslwnfs_offer_words "$globals" "$cur"
    else
        _tslwnfs_offer command "$cur"
    fi
    return 0
}

complete -F _tslwnfs tslwnfs
