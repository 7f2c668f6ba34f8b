"""What the programs and libraries in a package are, as readelf shows it."""

import pathlib
import re
import subprocess


def shown(*words):
    return subprocess.run(["readelf", "--wide", *words], check=True, capture_output=True, text=True).stdout


def files_in(folder):
    """The programs and libraries below a folder, each once."""
    found = [path for path in pathlib.Path(folder).rglob("*") if path.is_file() and not path.is_symlink()]
    return [path for path in found if path.open("rb").read(4) == b"\x7fELF"]


def build_id(file):
    return re.search(r"Build ID: ([0-9a-f]+)", shown("--notes", file))[1]


def sections(file):
    return set(re.findall(r"\] (\.\S+)", shown("--sections", file)))


def search_paths(file):
    return re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", shown("--dynamic", file))


def is_hardened(file):
    """Loaded anywhere, its tables read-only from the start, no stack that is executed."""
    segments, dynamic = shown("--file-header", "--segments", file), shown("--dynamic", file)
    stack = re.search(r"GNU_STACK .* (\S+) +0x", segments)[1]
    return "DYN (" in segments and "GNU_RELRO" in segments and "NOW" in dynamic and "E" not in stack
