"""Checks what the installed program and library of a preset need and offer.

The two meet in the tdm_ operations alone, so that either can be replaced by another build of the same shape; what ships
needs the C library and nothing else. What the tests run has its assertions besides.
"""

import pathlib
import re
import subprocess
import sys

# What hosts have that the packages are for; and the symbols that a build on a newer base takes in a newer version, or from
# the compiler's own libraries, although nothing in the sources asks for more: a build on the older base does not.
OLDEST_BASE = (2, 28)
OF_THE_BASE = {
    "fstat", "fstat64", "fstatat", "fstatat64", "lstat", "lstat64", "mknod", "mknodat", "stat", "stat64",  # in a static part before
    "_dl_find_object",  # libgcc
    "__libc_single_threaded",  # libstdc++
}  # fmt: skip

C_LIBRARY = {"libc.so.6", "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1"}


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def dynamic_section(path):
    """The (tag, value) pairs of a file's dynamic section, for the tags that carry a text."""
    return re.findall(r"\((\w+)\).*\[(.*)\]", output_of("readelf", "--dynamic", "--wide", str(path)))


def needed(path):
    return {value for tag, value in dynamic_section(path) if tag == "NEEDED"}


def symbols(path, kind):
    """Names in the dynamic symbol table, with their versions."""
    return {line.split()[-1] for line in output_of("nm", "--dynamic", kind, str(path)).splitlines() if line}


def version_of(text):
    return tuple(map(int, text.removeprefix("GLIBC_").split(".")))


def versions(path, kind):
    """The versions of the C library's that each symbol has in a file."""
    found = {}
    for name in symbols(path, kind):
        plain, _, version = name.replace("@@", "@").partition("@")
        if version.startswith("GLIBC_2"):
            found.setdefault(plain, set()).add(version_of(version))
    return found


def c_library():
    """The one that this program runs with."""
    mapped = pathlib.Path("/proc/self/maps").read_text(encoding="ascii")
    return re.search(r"(/\S*/libc\.so\.6)$", mapped, re.MULTILINE)[1]


def too_new(path, offered):
    """The symbols with no version that the oldest base has, and the newest version that is asked for."""
    wanted = versions(path, "--undefined-only")
    names = {
        name
        for name, asked in wanted.items()
        if max(asked) > OLDEST_BASE and name not in OF_THE_BASE and min(offered.get(name, asked)) > OLDEST_BASE
    }
    return names, max(version for asked in wanted.values() for version in asked)


def problems_of_versions(home):
    offered = versions(c_library(), "--defined-only")
    files = [home / "bin/tslwnfs", home / "bin/loopnfsd", home / "lib/libnfstdm.so", *sorted(home.glob("lib/nfstdm-*.so"))]
    for path in files:
        names, newest = too_new(path, offered)
        print(f"{path.name}: this build asks for versions up to GLIBC_{newest[0]}.{newest[1]}")
        for name in sorted(names):
            yield f"{path.name} uses {name}, which a C library of version {OLDEST_BASE[0]}.{OLDEST_BASE[1]} lacks"


def problems(home):
    yield from problems_of_versions(home)
    program, library, server = home / "bin/tslwnfs", home / "lib/libnfstdm.so", home / "bin/loopnfsd"

    for path, allowed in ((program, C_LIBRARY | {"libnfstdm.so"}), (library, C_LIBRARY), (server, C_LIBRARY)):
        for name in sorted(needed(path) - allowed):
            yield f"{path.name} needs {name}"
    for path in home.glob("lib/nfstdm-*.so"):
        for name in sorted(symbols(path, "--defined-only") - {path.stem.replace("-", "_") + "_module"}):
            yield f"{path.name} exports {name}"
    if "libnfstdm.so" not in needed(program):
        yield "tslwnfs does not need libnfstdm.so"

    paths = {tag: value for tag, value in dynamic_section(program) if tag in ("RPATH", "RUNPATH")}
    if paths != {"RUNPATH": "$ORIGIN/../lib"}:
        yield f"tslwnfs must find its library by RUNPATH $ORIGIN/../lib alone, has {paths}"

    offered = symbols(library, "--defined-only")
    for name in sorted(offered):
        if not name.startswith("tdm_") or "@" in name:  # a version, which a stand-in would not have
            yield f"libnfstdm.so exports {name}"
    wanted = {name for name in symbols(program, "--undefined-only") if name.startswith("tdm_")}
    if not wanted:
        yield "tslwnfs imports no storage operation"
    for name in sorted(wanted - offered):
        yield f"libnfstdm.so lacks {name}"
    if not any(name.startswith("__assert_fail") for name in symbols(library, "--undefined-only")):
        yield "libnfstdm.so was built without assertions, so the end-to-end tests would not see one fail"


def main():
    found = list(problems(pathlib.Path(sys.argv[1])))
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
