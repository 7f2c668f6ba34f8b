"""Compiles the sources named on standard input as the given build tree would, and keeps nothing.

compile_sources.py TREE <NAMES: names that the tree does not compile are left out.
"""

import concurrent.futures
import json
import os
import pathlib
import shlex
import subprocess
import sys


def commands(tree, wanted):
    for entry in json.loads((tree / "compile_commands.json").read_text(encoding="utf-8")):
        if os.path.relpath(entry["file"]) in wanted:
            yield entry["directory"], [*shlex.split(entry["command"]), "-o", os.devnull]


def compiled(job):
    directory, command = job
    return subprocess.run(command, cwd=directory, check=False).returncode == 0


def main():
    jobs = list(commands(pathlib.Path(sys.argv[1]), set(sys.stdin.read().split())))
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return 0 if all(list(pool.map(compiled, jobs))) else 1


if __name__ == "__main__":
    sys.exit(main())
