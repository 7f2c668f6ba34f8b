"""Whether the tables of what is said at a terminal, catalogue/reasons.LANGUAGE.def, are about what the programs say.

Each English text of a table must stand in the sources, and whatever the utility says must stand in the tables; of the
storage library that goes for what servers answer most. What is only looked up at run time is looked for by its pieces:
the texts between names and numbers.
"""

import ctypes
import os
import pathlib
import re
import socket
import subprocess
import sys

TABLE = pathlib.Path("catalogue/reasons.de.def")
ROW = re.compile(r'^(?:REASON|PIECE)\("((?:[^"\\]|\\.)*)"', re.MULTILINE)
HOLE = re.compile(r"\{[0-9a-d]\}")
LITERALS = re.compile(r'(?:"(?:[^"\\\n]|\\.)*"\s*)+')
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')
CONVERSION = re.compile(r"%(?:\.\*)?[lz]*[a-z]")
COMMENT = re.compile(r"^\s*//.*$", re.MULTILINE)
# Calls whose texts a person reads.
CALL = re.compile(
    r"\b(?:say|note_failure|note_hint|note_remark|note_system_failure|note_library_failure|tell_consequence"
    r"|trace_failure|object_to|note_refusal|keep|warn|complain)\("
)
# Sources whose every text of several words is one that a person reads.
WHOLLY_SAID = [
    "nfstdm/remote/shared_statuses.h",
    "nfstdm/nfs3/status_table.cpp",
    "tslwnfs/frontend/guidance.cpp",
    "tslwnfs/terminal/reasons.cpp",
]
# What is typed as it stands, in every language: the first line of a synopsis, and a command that is recommended.
SYNOPSIS = re.compile(r"^[A-Za-z_|?]+ .*[\[A-Z].*$", re.MULTILINE)
TYPED = {"tslwnfs showmount -e"}


def unescaped(text):
    return text.replace('\\"', '"').replace("\\n", "\n").replace("\\\\", "\\")


def literals(source):
    """The string literals; those that the compiler joins are one."""
    for found in LITERALS.finditer(COMMENT.sub("", source)):
        yield unescaped("".join(LITERAL.findall(found.group())))


def call_texts(source):
    """The literals in the calls that say something."""
    for call in CALL.finditer(source):
        depth, end = 1, call.end()
        while depth and end < len(source):
            text = LITERAL.match(source, end)
            if text:
                end = text.end()
                continue
            depth += {"(": 1, ")": -1}.get(source[end], 0)
            end += 1
        yield from literals(source[call.end() : end])


def pieces(text, gap):
    """What stands between names and numbers, line by line, without what lines are joined with."""
    for piece in gap.split(text):
        for part in re.split(r"; |: |\n", piece):
            part = re.sub(r"^/\S*", "", part).strip(' :;,.()"')  # "/NAME" ends a path
            if len(part.split()) > 1 and part not in TYPED:
                yield part


def stands_in(piece, texts, all_texts):
    if piece in all_texts:
        return True
    ends = [cut for cut in range(1, len(piece)) if any(text.endswith(piece[:cut]) for text in texts)]
    return any(text.startswith(piece[cut:]) for cut in ends for text in texts)


def system_words():
    resolver = ctypes.CDLL(None).gai_strerror
    resolver.restype = ctypes.c_char_p
    errors = {getattr(socket, name) for name in dir(socket) if name.startswith("EAI_")}
    return {os.strerror(number) for number in range(134)} | {resolver(error).decode() for error in errors}


def rows_nobody_says(rows, texts):
    all_texts = "\n".join(texts)
    for row in rows:
        if not all(stands_in(piece, texts, all_texts) for piece in pieces(row, HOLE)):
            yield f'{TABLE}: nobody says "{row}"'


def texts_without_row(name, source, known):
    said = list(literals(source)) if name in WHOLLY_SAID else []
    if name.startswith("tslwnfs/"):
        said += call_texts(source)
    for text in said:
        for piece in pieces(SYNOPSIS.sub("", text, count=1), CONVERSION):
            if piece not in known:
                yield f'{name}: no table has "{piece}"'


def main():
    rows = [unescaped(row) for row in ROW.findall(TABLE.read_text(encoding="utf-8"))]
    if not rows:
        sys.exit(f"{TABLE}: no rows")
    names = subprocess.run(
        ["git", "ls-files", "tslwnfs", "nfstdm", "platform"], check=True, capture_output=True, text=True
    ).stdout.split()
    sources = {name: pathlib.Path(name).read_text(encoding="utf-8") for name in names if name.endswith((".cpp", ".h"))}
    said = [text for source in sources.values() for text in literals(source)]
    problems = list(rows_nobody_says(rows, [*said, *system_words()]))
    known = "\n".join(HOLE.sub("{}", row) for row in rows)
    for name, source in sources.items():
        problems += texts_without_row(name, source, known)
    for problem in dict.fromkeys(problems):
        print(problem)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
