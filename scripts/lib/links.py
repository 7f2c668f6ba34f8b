"""Fails when a Markdown file of the tree links to a file that is not there."""

import pathlib
import re
import subprocess
import sys

LINK = re.compile(r"\[[^\]]*\]\(([^)#\s]+)[^)]*\)")


def broken_links():
    names = subprocess.run(["git", "ls-files", "*.md"], check=True, capture_output=True, text=True).stdout.split()
    for name in names:
        page = pathlib.Path(name)
        for target in LINK.findall(page.read_text(encoding="utf-8")):
            if "://" not in target and not (page.parent / target).exists():
                yield f"{name}: {target}"


def main():
    broken = list(broken_links())
    print("\n".join(broken))
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
