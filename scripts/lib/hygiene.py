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

# The folders, each behind those it stands on: a file includes what is in its own folder, in one further left in its row,
# or in one that the row as a whole stands on. docs/architecture.md draws the same.
STACKS = [
    ("platform", "include"),
    (
        "nfstdm/base nfstdm/tls nfstdm/tls/module nfstdm/xdr nfstdm/volume nfstdm/rpc/message nfstdm/rpc/auth nfstdm/gss"
        " nfstdm/rpc/transport nfstdm/rpc"
        " nfstdm/portmap nfstdm/remote nfstdm/nfs3 nfstdm/nfs4 nfstdm/mounts nfstdm/files nfstdm/tdm",
        "include",
    ),
    (
        "tslwnfs/terminal tslwnfs/output tslwnfs/options tslwnfs/storage tslwnfs/config tslwnfs/commands"
        " tslwnfs/client tslwnfs/netdisc tslwnfs/frontend tslwnfs",
        "include platform catalogue nfstdm/base nfstdm/rpc/auth nfstdm/nfs3 nfstdm/nfs4 nfstdm/mounts",
    ),
    (
        "tools/loopnfsd/base tools/loopnfsd/faults tools/loopnfsd/store tools/loopnfsd/wire tools/loopnfsd/files"
        " tools/loopnfsd/nfs tools/loopnfsd/nfs4 tools/loopnfsd",
        "nfstdm/base nfstdm/tls nfstdm/xdr nfstdm/rpc/message nfstdm/portmap nfstdm/remote nfstdm/nfs3 nfstdm/nfs4",
    ),
]
INCLUDE = re.compile(r'^#include "([^"]+)"', re.MULTILINE)

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


def folder_of(name):
    return name.rpartition("/")[0]


def includes(texts):
    """For each source of the stacks, the sources that it includes."""
    sources = dict(texts)
    known = {folder for folders, _ in STACKS for folder in folders.split()}
    for name, text in texts:
        if folder_of(name) in known and re.search(SOURCES, name):
            yield name, [included for included in INCLUDE.findall(text) if included in sources]


def arrows_back(texts):
    may_use = {}
    for folders, foundations in STACKS:
        below = set(foundations.split())
        for folder in folders.split():
            below = below | {folder}
            may_use[folder] = below
    for name, included in includes(texts):
        for other in included:
            if folder_of(other) not in may_use[folder_of(name)]:
                yield f"{name}: includes {other}, which does not stand below it"


def unit_of(name):
    """A source and its header are one."""
    return name.rpartition(".")[0]


def circles(texts):
    """Units that include each other, however far around: what is left when whatever nothing leads to or from is gone."""
    arrows = {}
    for name, included in includes(texts):
        arrows.setdefault(unit_of(name), set()).update(unit_of(other) for other in included)
    for unit, others in arrows.items():
        others.discard(unit)
    while True:
        reached = set().union(*arrows.values()) if arrows else set()
        left = {unit: others & arrows.keys() for unit, others in arrows.items() if unit in reached}
        left = {unit: others for unit, others in left.items() if others}
        if left == arrows:
            break
        arrows = left
    if arrows:
        yield "these include each other in a circle: " + ", ".join(sorted(arrows))


def main():
    texts = list(tracked_texts())
    problems = [problem for rule in RULES for problem in apply(rule, texts)]
    problems += licence_lines(texts)
    problems += arrows_back(texts)
    problems += circles(texts)
    print("\n".join(problems))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
