"""Changes of tslnfstab at the same time, and what other runs see of them."""

import fcntl
import os

import pytest
import servers
from client import finish
from files import digest, make_file
from texts import SUCCEEDED

# Each round starts both commands afresh. TSLWNFS_ROUNDS asks for more than a run of the whole suite has time for.
ROUNDS = int(os.environ.get("TSLWNFS_ROUNDS", "15"))

BEGIN, END = "#<server block begin>\n", "#<server block end>\n"
OTHERS = ["o1", "o2", "o3"]
PORT = "rdmaport: 20049"


def block(name, *lines):
    return BEGIN + f"server: {name}\n" + "".join(f"{line}\n" for line in lines) + END


def create(name):
    return ["createtslnfstab", "-s", name, "-t", "7"]


def words_for(word):
    return lambda name: [word, "-s", name]


def mount(name):
    return ["mount", f"/export/{name}", f"/mnt/{name}"]


DELETED = {"s1": None, "s2": None}
ENABLED = {"s1": [PORT], "s2": [PORT]}
CREATED = {"s1": ["mnt_timeout: 7"], "s2": ["mnt_timeout: 7"]}

# What is run for s1 and for s2, and the lines of each block afterwards.
PAIRS = {
    "delete and delete": (words_for("delete_server"), words_for("delete_server"), DELETED),
    "enable and enable": (words_for("enablerdma"), words_for("enablerdma"), ENABLED),
    "create again and create again": (create, create, CREATED),
    "create again and delete": (create, words_for("delete_server"), {**CREATED, "s2": None}),
    "delete and enable": (words_for("delete_server"), words_for("enablerdma"), {**ENABLED, "s1": None}),
    "create again and enable": (create, words_for("enablerdma"), {**CREATED, "s2": [PORT]}),
    "mount and delete": (mount, words_for("delete_server"), {"s1": [], "s2": None}),
    "mount and create again": (mount, create, {**CREATED, "s1": []}),
    "mount and mount": (mount, mount, {"s1": [], "s2": []}),
}


@pytest.mark.parametrize("first, second, left", PAIRS.values(), ids=PAIRS.keys())
def test_two_changes_at_the_same_time_are_both_made(own, first, second, left):
    for _ in range(ROUNDS):
        own.tslnfstab.write_text("".join(block(name) for name in ["s1", "s2", *OTHERS]))
        started = [own.start(*first("s1")), own.start(*second("s2"))]
        done = [finish(process) for process in started]
        assert [run.status for run in done] == [0, 0], done
        assert all(run.out.endswith(SUCCEEDED) for run in done)
        text = own.tslnfstab.read_text()
        for name, lines in {**{name: [] for name in OTHERS}, **left}.items():
            assert text.count(f"server: {name}\n") == (0 if lines is None else 1), (name, text)
            assert lines is None or block(name, *lines) in text, (name, text)
        for name, command in (("s1", first), ("s2", second)):
            assert text.count(f"export: /export/{name}\nmount: /mnt/{name}\n") == (command is mount)
        assert text.count(BEGIN) == text.count(END) == len(OTHERS) + sum(lines is not None for lines in left.values())
        assert {path.name for path in own.tslnfstab.parent.iterdir()} == {"tslnfstab"}


def test_new_servers_at_the_same_time_are_all_there(own):
    names = [f"n{number}" for number in range(8)]
    for process in [own.start(*create(name)) for name in names]:
        assert finish(process).status == 0
    assert sorted(own.ok("getserverlist").decode().split("\n")[: len(names)]) == names


def test_a_change_waits_for_the_one_before(own):
    own.tslnfstab.write_text(block("a"))
    with_lock = os.open(own.tslnfstab.parent, os.O_RDONLY)
    fcntl.flock(with_lock, fcntl.LOCK_EX)
    waiting = own.start("enablerdma", "-s", "a")
    # What is changed while it waits is what it changes.
    own.tslnfstab.write_text(block("b") + block("a"))
    os.close(with_lock)
    assert finish(waiting).status == 0
    assert own.tslnfstab.read_text() == block("b") + block("a", PORT)


@pytest.mark.slow
def test_a_change_that_waits_in_vain_says_so(own):
    own.tslnfstab.write_text(block("a"))
    with_lock = os.open(own.tslnfstab.parent, os.O_RDONLY)
    fcntl.flock(with_lock, fcntl.LOCK_EX)
    words = [["delete_server", "-s", "a"], create("a"), mount("a"), ["save"], ["wnfsenable", "-y"]]
    started = [own.start(*each, env={"TSLWNFS_TERMINAL": "always"}) for each in words]
    for process in started:
        run = finish(process)
        assert run.status == 1
        assert b"another run has been changing the configuration" in run.err
    os.close(with_lock)
    assert own.tslnfstab.read_text() == block("a")
    assert [path.name for path in own.tslnfstab.parent.iterdir()] == ["tslnfstab"]


def test_a_copy_that_begins_during_a_change_goes_to_its_server(own, tmp_path):
    """Another server is changed all the time; no run ever finds the file missing, or half of it."""
    served, mounted = tmp_path / "served", tmp_path / "mounted"
    served.mkdir()
    mounted.mkdir()
    source = make_file(tmp_path / "source", 1000)
    daemon = servers.LoopnfsdProcess(own.home, served)
    try:
        own.tslnfstab.write_text(
            servers.server_block("loop", daemon.address, [("/export", mounted)]) + block("s1") + "# note\n" * 1000
        )
        for number in range(4 * ROUNDS):
            edits = [["enablerdma", "-s", "s1"], ["disablerdma", "-s", "s1"], create("s1"), create("s1")]
            edit = own.start(*edits[number % len(edits)])
            own.ok("cp", source, mounted / f"copy{number}")
            assert finish(edit).status == 0
        assert list(mounted.iterdir()) == []
        for number in range(4 * ROUNDS):
            assert digest(served / f"copy{number}") == digest(source)
    finally:
        daemon.close()


# ---- a configuration that was left in its backup


@pytest.fixture
def left_in_backup(own, tmp_path):
    """A client whose change was cut off in the middle, and a local directory of the name of its mount point."""
    mounted = tmp_path / "mounted"
    mounted.mkdir()
    (mounted / "old").write_text("old")
    text = servers.server_block("gone", "127.0.0.1:1", [("/export", mounted)])
    own.tslnfstab.with_name("tslnfstab.bak").write_text(text)
    return own, mounted


def test_no_path_is_local_while_the_configuration_is_left_in_its_backup(left_in_backup, tmp_path):
    own, mounted = left_in_backup
    source = make_file(tmp_path / "source", 1000)
    for words in (
        ["cp", source, mounted / "new"],
        ["mv", source, mounted / "new"],
        ["dd", "-if", source, "-of", mounted / "new", "-bs", "1"],
        ["mkdir", mounted / "new"],
        ["rm", mounted / "old"],
        ["cat", mounted / "old"],
        ["ls", mounted],
    ):
        run = own.run(*words, env={"TSLWNFS_TERMINAL": "always"})
        assert run.status == 1, (words, run)
        assert b"the configuration was left in" in run.err, (words, run)
    assert [path.name for path in mounted.iterdir()] == ["old"]
    assert source.exists()
    own.tslnfstab.with_name("tslnfstab.bak").rename(own.tslnfstab)
    assert own.ok("getserverlist") == b"gone\n" + SUCCEEDED


@pytest.mark.parametrize("words", [create("a"), mount("a"), [*mount("a"), "-f"], ["wnfsenable"]], ids=lambda words: words[0])
def test_a_configuration_that_is_left_in_its_backup_is_not_written_over(left_in_backup, words):
    own, _ = left_in_backup
    before = own.tslnfstab.with_name("tslnfstab.bak").read_text()
    run = own.run(*words, env={"TSLWNFS_TERMINAL": "always"})
    assert run.status == 1
    assert b"the configuration was left in" in run.err
    assert not own.tslnfstab.exists()
    assert own.tslnfstab.with_name("tslnfstab.bak").read_text() == before


# ---- what is no file


@pytest.mark.parametrize(
    "words",
    [["getserverlist"], ["delete_server", "-s", "a"], create("a"), mount("a"), ["umount", "/m"], ["save"], ["ls", "/"]],
    ids=lambda words: words[0],
)
def test_a_pipe_in_the_place_of_the_file_is_refused_and_not_waited_for(own, words):
    os.mkfifo(own.tslnfstab)
    assert own.run(*words).status != 0


# ---- permissions


def test_copies_of_a_closed_configuration_are_closed(own):
    own.tslnfstab.write_text(block("a", "community: secret") + "export: /e\nmount: /m\n")
    own.tslnfstab.chmod(0o600)
    saved, filtered = (own.tslnfstab.with_name(f"tslnfstab{ending}") for ending in (".sav", ".bakfile"))
    for path in (saved, filtered):
        path.write_text("old")
        path.chmod(0o644)
    own.ok("save", "-y")
    own.ok("umount", "/m")
    for path in (saved, filtered):
        assert path.stat().st_mode & 0o7777 == 0o600
        path.unlink()
    own.ok("umount", "/m")
    assert filtered.stat().st_mode & 0o7777 == 0o600


# ---- values


def test_no_value_becomes_a_setting_of_its_own(own):
    for words in (
        ["createtslnfstab", "-s", "a", "-c", "x\nexport: /e\nmount: /"],
        ["createtslnfstab", "-s", "a\rb"],
        ["mount", "/e", "/m", "-s", "a\nmount: /"],
        ["mount", "/e\n", "/m"],
    ):
        assert own.run(*words).status == 1
        assert not own.tslnfstab.exists()
    own.tslnfstab.write_text(block("a"))
    assert own.run("enablerdma", "-s", "a", "-p", "1\nmount: /").status == 1
    assert own.tslnfstab.read_text() == block("a")


def test_a_server_without_a_local_address_is_reached(own, tmp_path):
    served = tmp_path / "served"
    served.mkdir()
    daemon = servers.LoopnfsdProcess(own.home, served)
    try:
        own.ok("createtslnfstab", "-s", "loop", "-lp", f",{daemon.address}", "-em", "/export,/wnfs-made", "-m", "two words")
        assert f"local:  \t path: {daemon.address}\n" in own.tslnfstab.read_text()
        own.ok("mkdir", "/wnfs-made/new")
        assert (served / "new").is_dir()
    finally:
        daemon.close()


def test_what_will_be_read_otherwise_is_warned_about(own):
    for words, told in (
        (["-em", "/e,/mnt/with blank"], "mount: \"/mnt/with blank\" ends at its first blank"),
        (["-t", "soon"], "mnt_timeout: \"soon\" is not a number"),
        (["-u", "oracle"], "-u oracle is no number"),
        (["-g", "5x"], "-g 5x is no number"),
    ):
        run = own.run("createtslnfstab", "-s", "a", *words, env={"TSLWNFS_TERMINAL": "always"})
        assert run.status == 0
        assert b"warning: " in run.err and told.encode() in run.err


def test_keys_in_capitals_are_warned_about_when_a_session_begins(own, tmp_path):
    own.tslnfstab.write_text("server: a\nExport: /e\nMount: /m\n")
    run = own.run("ls", tmp_path, env={"TSLWNFS_TERMINAL": "always"})
    assert run.status == 0
    assert b"warning: tslnfstab, line 2: unknown key \"Export\": keys are in lower case, export" in run.err
    assert b"line 3: unknown key \"Mount\"" in run.err
