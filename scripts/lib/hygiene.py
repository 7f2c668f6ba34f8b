"""Rules for the tracked files that neither the compilers nor clang-tidy know.

Each rule names the files it looks at, the pattern it refuses, why, and the files that are exempt with their reason. An
exemption that is no longer needed is an error too, so that the lists stay true.
"""

import dataclasses
import pathlib
import re
import subprocess
import sys

# A rule must not find itself: words that are refused everywhere are put together here.
HERE = "scripts/lib/hygiene.py"


@dataclasses.dataclass
class Rule:
    pattern: str
    why: str
    files: str = r""
    exempt: dict = dataclasses.field(default_factory=dict)


SOURCES = r"\.(cpp|h|c)$"

RULES = [
    Rule(
        r"\bv?sprintf\s*\(|\b(strcpy|strncpy|strcat|strncat|strtok|gets|atoi|atol|atoll|alloca)\s*\(",
        "unbounded or unchecked C function",
        SOURCES,
    ),
    Rule(
        r"\b(system|popen|wordexp)\s*\(",
        "runs a shell",
        SOURCES,
        {
            "tslwnfs/commands/find.cpp": "find -exec is a shell command by definition",
            "tslwnfs/client/enablement.cpp": "wnfsenable copies the library with the shell's cp",
            "tests/unit/frontend/messages_test.cpp": "gencat makes the catalogues of the test",
        },
    ),
    Rule(r"\busing namespace std\b(?!::\w*literals)", "names of std stay qualified", SOURCES),
    Rule(r"/" + r"work/|/" + r"root/|\.library\b", "a path of one machine"),
    Rule(r"\b(deb\.debian|security\.debian|registry\.npmjs|pypi)\.org\b", "a registry's host", exempt={}),
    Rule(
        r"(?i)\bspeci" r"fication|\bthe sp" r"ec\b|\bsp" r"ec\.md|\bPar" r"ts? [1-6]\.[0-9]",
        "the tree explains itself; RFCs are cited by number and section",
    ),
    Rule(r"[ \t]+$", "trailing blanks", SOURCES + r"|\.(py|txt|cmake)$|^scripts/"),
]

LICENCE_LINE = re.compile(r"(//|/\*) SPDX-License-Identifier: Apache-2\.0( \*/)?\n")


def tracked_texts():
    names = subprocess.run(["git", "ls-files", "-z"], check=True, capture_output=True, text=True).stdout.split("\0")
    for name in filter(None, names):
        path = pathlib.Path(name)
        if not path.is_file():
            continue
        try:
            yield name, path.read_text(encoding="utf-8")
        except UnicodeDecodeError:
            pass  # binary


def apply(rule, texts):
    hits = set()
    regex = re.compile(rule.pattern)
    for name, text in texts:
        if name == HERE or not re.search(rule.files, name):
            continue
        for number, line in enumerate(text.splitlines(), 1):
            if not regex.search(line):
                continue
            hits.add(name)
            if name not in rule.exempt:
                yield f"{name}:{number}: {rule.why}: {line.strip()[:120]}"
    for name in sorted(set(rule.exempt) - hits):
        yield f"{HERE}: the exemption of {name} from '{rule.why}' is no longer needed"


def licence_lines(texts):
    for name, text in texts:
        if re.search(SOURCES, name) and not LICENCE_LINE.match(text):
            yield f"{name}:1: the first line must name the licence"


def main():
    texts = list(tracked_texts())
    problems = [problem for rule in RULES for problem in apply(rule, texts)]
    problems += licence_lines(texts)
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
