"""Wrong command lines, usage and help: the text, the stream and the status."""

import re

import pytest
from files import make_file
from texts import SUCCEEDED, UNUSABLE, banner, failed, message

HELP = (
    b"TSLWNFS Helper Utility performs remote file operations using Tessel Wren NFS Client."
    b"For information on Wren NFS Client, and for detailed description of TSLNWNFS options, "
    b"please consult the 4kR3 Database Installation Manual for Microsoft Windows.\n\n"
    b"NOTE: For TSLWNFS to operate, tslnfstab configuration file must be present in TesselHome\\dbs directory. \n"
)
USAGE_HEADER = message(65006, "Usage: see the command summary.")


@pytest.fixture(scope="module")
def usage(local):
    """The usage text, as a call without arguments prints it."""
    run = local.run()
    assert run.status == 1 and run.err == b""
    return run.out


def test_the_usage_text_has_a_banner_a_header_and_eight_lines(usage):
    lines = usage.splitlines(keepends=True)
    assert re.match(rb"TSLWNFS.*\d+\.\d+", lines[0])
    assert lines[1] == USAGE_HEADER
    assert len(lines) >= 10
    assert lines[2].startswith(b"tslwnfs [-trace")
    assert not re.search(rb"TWNFS-", b"".join(lines[2:]))


WRONG_LINES = [
    [""],
    ["-y"],
    ["nonsense"],
    ["COPY", "a", "b"],
    ["copy", "a", "b", "c"],
    ["copy", "a", "b", "-i"],
    ["del", "a", "b"],
    ["cat", "a", "b"],
    ["move", "a", "b", "c"],
    ["mkdir", "a", "b"],
    ["rmdir", "a", "b"],
    ["getattr", "a", "b"],
    ["setattr", "a", "b"],
    ["stat", "a", "b"],
    ["fsstat", "a", "b"],
    ["fsinfo", "a", "b"],
    ["Dd", "-if", "a"],
    ["showmount", "-e"],
    ["showmount", "-x", "srv"],
    ["showmount", "-e", "-y"],
    ["wnfsdisable", "-delete"],
    ["getsubnetmask"],
    ["getsubnetmask", "-ip"],
    ["getsubnetmask", "-ip", "-x"],
    ["display_server", "-s", "-x"],
    ["enablerdma", "-p", "1"],
    ["isPathOnWNFS", "-oh", "h"],
    ["isPathOnWNFS", "-path", "p"],
    ["mount_script", "-e", "x"],
    ["mount_script", "-e", "x", "-m"],
    ["umount_script"],
    ["iswnfsenabled", "a", "b"],
    ["-trace"],
    ["-trace", "save"],
    ["-level", "1", "2", "3", "4"],
    ["-level", "1", "2", "3", "5", "ls", "/"],
    ["-level", "-1", "2", "3", "4", "ls", "/"],
    ["-level", "0", "0", "ls", "/"],
    ["-log"],
    ["-log", "mv", "ls", "/x"],
    ["-log", "-level", "ls", "/x"],
    ["ls", "x" * 260],
    ["x" * 300],
]


@pytest.mark.parametrize("words", WRONG_LINES, ids=lambda words: " ".join(words)[:40] or "empty")
def test_a_wrong_command_line_gives_the_usage_text_and_1(local, usage, tmp_path, words):
    run = local.run(*words, cwd=tmp_path)
    assert (run.status, run.out) == (1, usage)
    assert list(tmp_path.iterdir()) == []


def test_a_global_option_out_of_its_order_gives_the_usage_text(local, usage, tmp_path):
    for words in (["-log", "l", "-trace", "t", "ls", "/"], ["-log", "l", "-level", "1", "1", "1", "1", "ls", "/"]):
        run = local.run(*words, cwd=tmp_path)
        assert (run.status, run.out) == (1, usage)


def test_usage_goes_to_standard_output_although_a_log_was_asked_for(local, usage, tmp_path):
    run = local.run("-log", "log.txt", cwd=tmp_path)
    assert (run.status, run.out) == (1, usage)
    assert (tmp_path / "log.txt").read_bytes() == b""


@pytest.mark.parametrize("word", ["?", "h", "help"])
def test_help_is_the_usage_text_with_three_lines_more(local, usage, word):
    run = local.run(word)
    assert (run.status, run.out) == (1, usage + HELP)


def test_a_word_of_259_characters_is_taken(local):
    run = local.run("ls", "/" + "x" * 258)
    assert (run.status, run.out) == (1, banner("DIR", "/" + "x" * 258) + failed(1))


@pytest.mark.parametrize(
    "words",
    [
        ["copy", "a"],
        ["copy", "a", "-y"],
        ["copy"],
        ["move", "a"],
        ["del"],
        ["cat"],
        ["ls"],
        ["find"],
        ["mkdir", "-p"],
        ["umount"],
        ["mount", "exp", "-y"],
        ["display_server"],
        ["iswnfsenabled"],
    ],
    ids=" ".join,
)
def test_a_missing_operand_fails_with_one_message(local, words):
    run = local.run(*words)
    assert (run.status, run.out) == (1, failed(1))


DD_HELP = (
    USAGE_HEADER
    + b"dd [-if <value>,-of <value>,-obs <value>,-ibs<value>,-bs <value>,-count <value>,-seek<value>,-skip <value>] \n"
    b"Convert and copy a file via Wren NFS \n\n"
    b"Options \n\n"
    b"-bs BYTES \t force ibs=BYTES and obs=BYTES \n"
    b"-count BLOCKS \t copy only BLOCKS input blocks  \n"
    b"-ibs BYTES \t read BYTES bytes at a time\n"
    b"-if FILE \t read from FILE instead of stdin\n"
    b"-obs BYTES \t write BYTES bytes at a time\n"
    b"-of FILE \t write to FILE instead of stdout\n"
    b"-seek N \t skip N obs-sized blocks at start of output\n"
    b"-skip N\tskip N ibs-sized blocks at start of input\n\n"
    b"BLOCKS and BYTES may be followed by the following multiplicative suffixes:\n"
    b"c (1 byte), w (2 bytes), b (512 bytes), KB (1000 bytes),\n"
    b"K (1024 bytes), MB (1000*1000 bytes), M (1024*1024 bytes),\n"
    b"GB (1000*1000*1000 bytes), G (1024*1024*1024 bytes)\n "
)


@pytest.mark.parametrize(
    "words, before",
    [
        ([], b""),
        (["foo"], b""),
        (["-bs"], b""),
        (["-bs", "-1"], b""),
        (["-seek", "-1"], b""),
        (["-bs", "4c"], message(65047, "Unknown size suffix; use w, b, k, kb, m, mb, g or gb.")),
        (["-seek", "2k"], message(65005, "The SEEK count must be given in decimal digits only.")),
        (["-skip", "x"], message(65005, "The SKIP count must be given in decimal digits only.")),
        (["-if", "-x"], message(65019, "The -if option needs the name of an input file.")),
        (["-of", "-x"], message(65033, "The -of option needs the name of an output file.")),
        (["-p", "-1"], message(65041, "The -p option needs a number of parallel requests.")),
        (["-p", "x"], b"Enter a numerical value"),
    ],
    ids=lambda value: " ".join(value) if isinstance(value, list) else None,
)
def test_a_wrong_dd_line_gives_its_message_and_the_dd_help(local, words, before):
    run = local.run("dd", *words)
    assert (run.status, run.out) == (1, before + DD_HELP)


@pytest.mark.parametrize("operand", ["..", "../here", ""])
def test_an_operand_that_cannot_be_resolved_is_refused(local, tmp_path, operand):
    (tmp_path / "here").mkdir()
    run = local.run("ls", operand, cwd=tmp_path / "here")
    assert (run.status, run.out) == (4, UNUSABLE)


def test_the_root_directory_alone_is_refused(local):
    assert local.run("ls", "/").out == UNUSABLE


def test_a_wildcard_without_a_match_is_refused(local, tmp_path):
    run = local.run("cat", tmp_path / "*.none")
    assert (run.status, run.out) == (4, UNUSABLE)


def test_a_question_mark_in_the_first_operand_is_refused(local, tmp_path):
    make_file(tmp_path / "ab", 1)
    run = local.run("cat", tmp_path / "a?")
    assert (run.status, run.out) == (4, UNUSABLE)


def test_a_path_that_outgrows_its_buffer_is_refused(local, tmp_path):
    deep = tmp_path
    while len(str(deep)) < 400:
        deep = deep / ("d" * 60)
    deep.mkdir(parents=True)
    name = "n" * 200
    run = local.run("mkdir", name, cwd=deep)
    assert (run.status, run.out) == (4, UNUSABLE)
    assert list(deep.iterdir()) == []


def test_further_words_after_the_path_of_ls_are_ignored(local, tmp_path):
    assert local.ok("ls", tmp_path, "extra", "words") == banner("DIR", tmp_path) + SUCCEEDED
