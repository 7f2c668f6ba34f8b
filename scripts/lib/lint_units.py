"""Names the units that a build tree compiles of the given folders of the source tree, a line each.

lint_units.py TREE FOLDER...: a unit of several sources stands in the build tree, in a folder of the same name.
"""

import json
import pathlib
import sys


def main():
    tree = pathlib.Path(sys.argv[1])
    folders = {pathlib.Path(start, folder).resolve() for folder in sys.argv[2:] for start in (".", tree)}
    for entry in json.loads((tree / "compile_commands.json").read_text(encoding="utf-8")):
        if folders.intersection(pathlib.Path(entry["file"]).resolve().parents):
            print(entry["file"])


if __name__ == "__main__":
    main()
