"""What a person at a terminal sees beside the command's output: progress, reasons and warnings. Pipes, the log and the
trace get none of it."""

import os
import re
import socket

import pyte
import pytest

import client
import servers
from files import digest, make_file
from terminal import Terminal
from texts import SUCCEEDED, failed

MB = 1_000_000
RATE = 8 * MB  # bytes a second, each way
SIZE = 20 * MB  # lasts well over a second at that rate
ALWAYS = {"TSLWNFS_TERMINAL": "always"}


def text(line):
    return line.decode().rstrip("\n")


@pytest.fixture
def slow(faulty):
    server = faulty()
    server.fault(f"rate={RATE}")
    return server


def frames(shown):
    """The progress lines, one after the other."""
    return [frame for frame in re.split(r"[\r\n]+", shown.sent) if re.search(r"  \d+ %", frame)]


def assert_only_output_is_left(shown):
    assert not [line for line in shown.lines if " %" in line], shown.lines


def test_a_copy_from_a_server_shows_its_progress(slow, tmp_path):
    make_file(slow.files / "big", SIZE)
    shown = Terminal(slow.client).run("cp", slow / "big", tmp_path / "copy")
    assert shown.status == 0
    assert digest(tmp_path / "copy") == digest(slow.files / "big")
    assert re.fullmatch(
        rf"{slow.remote}/big  \d+ %  [0-9.]+ MiB of 19.1 MiB  [0-9.]+ [KM]iB/s  \d+:\d\d left", frames(shown)[0]
    )
    shares = [int(re.search(r"(\d+) %", frame)[1]) for frame in frames(shown)]
    assert shares == sorted(shares)
    assert_only_output_is_left(shown)
    assert shown.lines[-1].endswith(text(SUCCEEDED))


@pytest.mark.parametrize("command", ["cp", "mv"])
def test_a_transfer_to_a_server_shows_its_progress(slow, tmp_path, command):
    source = make_file(tmp_path / "big", 3 * SIZE)
    expected = digest(source)
    shown = Terminal(slow.client).run(command, source, slow / "copy")
    assert shown.status == 0
    assert digest(slow.files / "copy") == expected
    assert frames(shown)
    assert_only_output_is_left(shown)


@pytest.mark.parametrize("words", [["cp"], ["dd", "-bs", "65536"], ["dd", "-bs", "1m"]], ids=" ".join)
def test_the_progress_of_a_transfer_to_a_server_is_what_the_server_took(faulty, tmp_path, words):
    """All of it fits into what the library accepts at once; what is shown goes with the server, to the end."""
    server = faulty()
    server.fault(f"rate={2 * MB}")
    source = make_file(tmp_path / "big", 10 * MB)
    operands = [source, server / "copy"] if words == ["cp"] else ["-if", source, "-of", server / "copy", *words[1:]]
    shown = Terminal(server.client).run(words[0], *operands)
    assert shown.status == 0
    assert digest(server.files / "copy") == digest(source)
    shares = [int(re.search(r"(\d+) %", frame)[1]) for frame in frames(shown)]
    assert len(set(shares)) > 3 and shares == sorted(shares), shares
    assert shares[0] < 80
    assert_only_output_is_left(shown)


def test_dd_shows_its_progress_beside_what_it_prints(slow, tmp_path):
    make_file(slow.files / "big", SIZE)
    terminal = Terminal(slow.client)
    shown = terminal.run("dd", "-if", slow / "big", "-of", tmp_path / "copy", "-bs", "65536")
    assert frames(shown)
    assert_only_output_is_left(shown)
    assert digest(tmp_path / "copy") == digest(slow.files / "big")
    # Batches to a server are reported on standard output, line by line.
    shown = terminal.run("dd", "-if", tmp_path / "copy", "-of", slow / "back", "-bs", "65536")
    assert shown.status == 0 and frames(shown)
    reported = [line for line in shown.lines if "readio" in line]
    assert reported and all(re.fullmatch(r"readio::\d+", line) for line in reported)
    assert_only_output_is_left(shown)


PIPES = {
    "from a pipe": 'cat "$1" | "$0" dd -of "$2" -bs 65536 > /dev/null',
    "into a pipe": '"$0" dd -if "$1" -of /dev/stdout -bs 65536 | cat > "$2"',
}


@pytest.mark.parametrize("name", PIPES)
def test_dd_shows_its_progress_in_a_pipe(slow, tmp_path, name):
    there, here = make_file(slow.files / "big", SIZE), make_file(tmp_path / "big", SIZE)
    operands, copy = ((here, slow / "copy"), slow.files / "copy")
    if name == "into a pipe":
        operands, copy = ((slow / "big", tmp_path / "copy"), tmp_path / "copy")
    program = slow.client.home / "bin" / "tslwnfs"
    terminal = Terminal(slow.client)
    shown = terminal.run("-c", PIPES[name], program, *operands, env={"TSLWNFS_STRICT": "options"}, program="/bin/sh")
    assert shown.status == 0
    assert digest(copy) == digest(there)
    seen = [frame for frame in re.split(r"[\r\n]+", shown.sent) if "iB/s" in frame]
    assert seen
    if name == "from a pipe":  # nobody knows how much there will be
        assert re.fullmatch(rf"{operands[1]}  [0-9.]+ [KM]iB  [0-9.]+ [KM]iB/s", seen[0].strip())
    assert not [line for line in shown.lines if "iB/s" in line]


def test_a_narrow_terminal_gets_a_shorter_line(slow, tmp_path):
    make_file(slow.files / "big", SIZE)
    columns = 30
    shown = Terminal(slow.client, columns).run("cp", slow / "big", tmp_path / "copy")
    assert frames(shown)
    assert all(len(frame) < columns for frame in frames(shown)), frames(shown)
    assert_only_output_is_left(shown)


def test_a_terminal_that_is_made_narrower_gets_lines_that_fit(slow, tmp_path):
    make_file(slow.files / "big", 2 * SIZE)
    terminal = Terminal(slow.client, 100)
    process = terminal.start("cp", slow / "big", tmp_path / "copy")
    process.expect(" left")
    columns = 30
    process.setwinsize(terminal.ROWS, columns)
    shown = terminal.finish(process)
    assert shown.status == 0
    drawn = [frame for frame in shown.sent.split("\r") if frame and "TWNFS" not in frame]
    fitting = [frame for frame in drawn if len(frame) < columns and re.search(r"  \d+ %", frame)]
    # One may have been on its way already.
    assert len(fitting) > 2 and len([frame for frame in drawn if len(frame) >= columns]) <= 1, drawn


def test_names_stand_in_columns_of_the_screen(local, tmp_path):
    for name in ("a", "ä" * 12, "名前" * 4, "b", "c", "d"):
        (tmp_path / name).touch()
    shown = Terminal(local).run("ls", "-C", tmp_path)
    rows = [line for line in shown.lines if not line.startswith(("DIR", "TWNFS")) and line.strip(". \t")]
    assert len(rows) == 2
    # A character that takes two columns of the screen is followed by an empty cell there, which the display leaves out.
    starts = [[sum(2 if c > "\u2fff" else 1 for c in row[: m.start()]) for m in re.finditer(r"\S+", row)] for row in rows]
    assert starts[0] == starts[1] and len(starts[0]) == 3
    piped = local.ok("ls", "-C", tmp_path)  # bytes there, as ever
    assert ("ä" * 12).encode() + b" " * (31 - 24) in piped


def test_a_quick_copy_shows_no_progress(faulty, tmp_path):
    server = faulty()
    source = make_file(tmp_path / "small", 1000)
    shown = Terminal(server.client).run("cp", source, server / "small")
    assert (shown.status, frames(shown), shown.said) == (0, [], [])


def test_cat_shows_its_progress_only_beside_a_file(slow, tmp_path):
    make_file(slow.files / "big", SIZE)
    with open(tmp_path / "out", "wb") as out:
        done = slow.client.run("cat", slow / "big", env=ALWAYS)
        assert b" %" not in done.err  # standard output is a pipe
        assert (slow.files / "big").read_bytes() in done.out
    shown = Terminal(slow.client).run("-log", tmp_path / "log", "cat", slow / "big")
    assert frames(shown)
    assert (slow.files / "big").read_bytes() in (tmp_path / "log").read_bytes()


def test_progress_is_shown_while_the_transfer_runs(slow, tmp_path):
    make_file(slow.files / "big", SIZE)
    terminal = Terminal(slow.client)
    process = terminal.start("cp", slow / "big", tmp_path / "copy")
    process.expect(" left")
    screen = pyte.Screen(terminal.columns, terminal.ROWS)
    pyte.Stream(screen).feed(process.before + process.after)
    assert any(re.search(r"  \d+ %  .* left", line) for line in screen.display)
    assert process.isalive()
    assert_only_output_is_left(terminal.finish(process, process.before + process.after))


# Failures on a real server, and the line that each of them leaves. {0} is a directory there that is writable, {1} one
# that is read-only, {2} a local one with a file in it.
FAILURES = {
    "no such file": (["cat", "{0}/none"], r"{0}/none: server \S+: no such file or directory"),
    "no such directory": (["cp", "{2}/file", "{0}/none/file"], r"{0}/none/file: server \S+: .*no such file or directory"),
    "directory without -r": (["cp", "{0}", "{2}/copy"], r"{0} is a directory; with -r it is copied, too"),
    "content of a directory": (["cat", "{0}"], r"{0} is a directory, not a file"),
    "read-only": (["mkdir", "{1}/new"], r"{1}/new: server \S+: MKDIR: .*read-only.*"),
    "exists": (["mkdir", "{0}"], r"{0}: server \S+: MKDIR: the name exists already \(NFS[34]ERR_EXIST\)"),
    "nothing matches": (["rm", "{0}/*.none"], r"no name matches {0}/\*\.none"),
    "itself": (["cp", "{2}/file", "{2}/file"], r"{2}/file and {2}/file are the same file"),
    "no local file": (["cp", "{2}/none", "{0}/x"], r"The file {2}/none could not be opened: No such file or directory; a local path: the mount points are .*"),
    "no local directory": (
        ["cp", "{2}/file", "{2}/none/x"],
        r"The file {2}/none/x could not be opened: No such file or directory; a local path: the mount points are .*",
    ),
}


@pytest.mark.parametrize("failure", FAILURES)
def test_a_failure_is_told_in_one_line(server, place, read_only_place, tmp_path, failure):
    words, expected = FAILURES[failure]
    make_file(tmp_path / "file", 10)
    places = (place.remote, read_only_place.remote, tmp_path)
    words = [word.format(*places) for word in words]
    shown = Terminal(server.client).run(*words)
    assert shown.status != 0
    (said,) = shown.said
    assert re.fullmatch("tslwnfs: " + expected.format(*map(str, places)), said)
    assert shown.lines[-1] == said  # behind the verdict
    # The same in a pipe leaves nothing there, and the same output but for the question of where it goes.
    piped = server.client.run(*words)
    assert (piped.status, piped.err) == (shown.status, b"")
    assert [line for line in shown.lines if line not in shown.said] == [
        line.rstrip() for line in piped.out.decode().split("\n") if line
    ]


# What the server answers to which request, the command that makes it, and what the person reads.
ANSWERS = {
    "WRITE:NOSPC": (["cp", "{local}", "{remote}/new"], "WRITE: no space left on the server", "tslwnfs stat -f DIRECTORY tells"),
    "COMMIT:IO": (["cp", "{local}", "{remote}/new"], "COMMIT: the server's disk failed", ""),
    "CREATE:ACCES": (["cp", "{local}", "{remote}/new"], "CREATE: permission denied", "the user and group that count are the caller's"),
    "READ:IO": (["cat", "{remote}/file"], "READ: the server's disk failed", ""),
    "READ:STALE": (["cat", "{remote}/file"], "READ: the file is gone from the server", "try again"),
    "REMOVE:ACCES": (["rm", "{remote}/file"], "REMOVE: permission denied", "the user and group that count are the caller's"),
    "MNT:ACCES": (["ls", "{remote}"], "MNT of /export: permission denied", "does the server admit this host?"),
    "MNT:NOENT": (["ls", "{remote}"], "MNT of /export: no such file", "does the server export that?"),
}


@pytest.mark.parametrize("answer", ANSWERS)
def test_an_answer_of_the_server_is_told_with_what_to_try(faulty, tmp_path, answer):
    words, why, advice = ANSWERS[answer]
    server = faulty()
    make_file(server.files / "file", 3 * MB)
    local = make_file(tmp_path / "local", 3 * MB)
    server.fault(f"status={answer}:*")
    words = [word.format(local=local, remote=server.remote) for word in words]
    shown = Terminal(server.client).run(*words)
    assert shown.status != 0
    said, *behind = shown.said
    assert all(line.startswith(f"tslwnfs: interrupted: {server.remote}/new is not complete") for line in behind)
    assert said.startswith(f"tslwnfs: {server.remote}")
    assert f": server faulty: {why}" in said
    assert advice in said
    assert server.client.run(*words).err == b""


def test_a_server_that_is_not_there_is_told(own, tmp_path):
    with socket.socket() as unused:
        unused.bind(("127.0.0.1", 0))
        port = unused.getsockname()[1]
        own.tslnfstab.write_text(servers.server_block("gone", f"127.0.0.1:{port}", [("/export", "/wnfs-gone")]))
        shown = Terminal(own).run("ls", "/wnfs-gone")
    (said,) = shown.said
    assert said == (
        f"tslwnfs: /wnfs-gone: server gone: MNT: 127.0.0.1:{port}: connect: Connection refused; "
        "is the server up, and is its address in tslnfstab right?"
    )


@pytest.mark.slow
def test_a_server_that_is_silent_is_told_while_the_command_waits(faulty):
    server = faulty(mnt_timeout=12)
    server.fault("silent")
    terminal = Terminal(server.client)
    process = terminal.start("ls", server.remote)
    process.expect_exact("tslwnfs: server faulty not responding, still trying")
    assert process.isalive()
    shown = terminal.finish(process, process.before + process.after)
    assert "no answer within 12 seconds" in shown.said[-1]


WAITS = {
    "nfsv3": ("status=READ:JUKEBOX:*", "server faulty is not ready (just started, or fetching the file), waiting"),
    "nfsv4.1": ("status=READ:GRACE:*", "server faulty is in its grace period after a start, waiting"),
}


@pytest.mark.parametrize("version", WAITS)
def test_a_server_that_puts_off_is_told_once_while_the_command_waits(faulty, tmp_path, version):
    server = faulty("--versions", version[4], version=version)
    make_file(server.files / "there", 100_000)
    fault, told = WAITS[version]
    server.fault(fault)
    terminal = Terminal(server.client)
    process = terminal.start("cp", server / "there", tmp_path / "copy")
    process.expect_exact(f"tslwnfs: {told}")
    assert process.isalive()
    server.tell("clear")
    shown = terminal.finish(process, process.before + process.after)
    assert shown.status == 0
    assert digest(tmp_path / "copy") == digest(server.files / "there")
    assert shown.said == [f"tslwnfs: {told}", "tslwnfs: server faulty ok again"]
    assert shown.lines[-1].endswith(text(SUCCEEDED))


def test_the_grace_period_of_a_server_that_started_again_is_told_in_the_language_of_the_locale(faulty, tmp_path):
    """It waits for a client that had something open and was killed."""
    server = faulty("--versions", "4", "--grace", "600", version="nfsv4.1")
    make_file(server.files / "big", SIZE)
    server.fault(f"rate={MB}")
    gone = server.start("cp", server / "big", tmp_path / "partial")
    server.await_count("READ", 2, gone)
    gone.kill()
    gone.communicate()
    server.tell("clear")
    server.tell("restart")
    told = "tslwnfs: Server faulty ist nach einem Start in seiner Wiederanlauffrist (grace period), es wird gewartet"
    terminal = Terminal(server.client)
    process = terminal.start("cp", server / "big", tmp_path / "copy", env={"LC_ALL": "de"})
    process.expect_exact(told)
    assert process.isalive()
    server.tell("end-grace")
    shown = terminal.finish(process, process.before + process.after)
    assert shown.status == 0
    assert digest(tmp_path / "copy") == digest(server.files / "big")
    assert shown.said == [told, "tslwnfs: Server faulty antwortet wieder"]


def test_a_file_that_misses_its_server_is_warned_of(faulty, tmp_path):
    """The mount point exists as a local directory, too, and takes what the server refused."""
    server = faulty()
    mount = tmp_path / "mount"
    mount.mkdir()
    server.client.tslnfstab.write_text(
        servers.server_block("faulty", " ".join(server.daemon.addresses), [("/export", str(mount))])
    )
    server.fault("read-only")
    source = make_file(tmp_path / "source", 1000)
    shown = Terminal(server.client).run("cp", source, mount / "copy")
    assert shown.status == 0
    assert digest(mount / "copy") == digest(source)
    (said,) = shown.said
    assert said.startswith(f"tslwnfs: warning: {mount}/copy: server faulty: CREATE: the export is read-only")
    assert said.endswith("; it goes to the local disk instead, under the mount point")
    assert server.client.run("cp", source, mount / "copy").err == b""


@pytest.mark.parametrize("side", ["local", "server"])
def test_nothing_is_told_of_an_empty_directory(faulty, tmp_path, side):
    server = faulty()
    for folder in (tmp_path / "empty", server.files / "empty"):
        (folder / "inner").mkdir(parents=True)
    tree = tmp_path / "empty" if side == "local" else server / "empty"
    for words in (["cp", "-r", tree, tmp_path / "copy"], ["cp", "-r", tree, server / "copy"], ["rm", "-r", "-f", tree]):
        shown = Terminal(server.client).run(*words)
        assert (shown.status, shown.said) == (0, []), words
    assert os.listdir(tmp_path / "copy") == os.listdir(server.files / "copy") == ["inner"]


def test_a_tree_that_was_copied_in_part_is_warned_of(faulty, tmp_path):
    server = faulty()
    (server.files / "tree").mkdir()
    server.fault("status=READDIRPLUS:IO:*", "status=READDIR:IO:*")
    shown = Terminal(server.client).run("cp", "-r", server / "tree", tmp_path / "copy")
    assert any("READDIRPLUS: the server's disk failed" in line for line in shown.said)


def test_trouble_with_the_configuration_is_told_after_a_failure(own, tmp_path):
    own.tslnfstab.unlink(missing_ok=True)
    shown = Terminal(own).run("cat", tmp_path / "none")
    assert shown.said[-1] == f"tslwnfs: warning: tslnfstab, no such file: {own.tslnfstab}"
    own.tslnfstab.write_text("bogus: 1\n")
    shown = Terminal(own).run("cat", tmp_path / "none")
    assert shown.said[-1].startswith("tslwnfs: warning: tslnfstab, line 1: ")


def test_a_home_whose_name_the_shell_would_split_is_told_as_such(own):
    home = own.home.rename(own.home.parent / "home with blanks")
    enabled = client.Client(home)
    enabled.tslnfstab.write_text("server: kept\n")
    shown = Terminal(enabled).run("wnfsenable", "-y")
    assert (shown.status, enabled.tslnfstab.read_text()) == (1, "server: kept\n")
    assert shown.said[-1].endswith("libnfstdm.so: the name holds a blank, or what else means something to the shell")


def test_a_missing_home_is_told(own):
    shown = Terminal(own).run("ls", "/", env={"TESSEL_HOME": None})
    assert shown.status == 1
    (said,) = shown.said
    assert "TESSEL_HOME" in said


def test_names_cannot_command_the_terminal(faulty):
    server = faulty()
    shown = Terminal(server.client).run("cat", server / "a\33[2Jb")
    (said,) = shown.said
    assert "/a?[2Jb: " in said


HOSTILE = "a\33[m\nb\x07\u009bc"
SHOWN = "a?[m?b??c"


@pytest.mark.parametrize(
    "words", [["ls", "{0}"], ["ls", "-C", "{0}"], ["ls", "-l", "{0}"], ["ls", "-R", "{0}"], ["find", "{0}"],
              ["cat", "{0}/*"], ["cp", "{0}/*", "{1}/*"], ["stat", "-c", "%n", "{0}/" + HOSTILE]]
)  # fmt: skip
def test_names_from_a_server_cannot_command_the_terminal(faulty, tmp_path, words):
    server = faulty()
    (server.files / HOSTILE).write_bytes(b"content")
    words = [word.format(server.remote, tmp_path) for word in words]
    shown = Terminal(server.client).run(*words)
    assert shown.status == 0
    assert "\33" not in shown.sent and "\x07" not in shown.sent and "\u009b" not in shown.sent
    assert SHOWN in shown.sent
    piped = server.client.run(*words)
    assert HOSTILE.encode() in piped.out
    log, trace = tmp_path / "log", tmp_path / "trace"
    server.client.run("-trace", trace, "-level", "1", "1", "1", "1", "-log", log, *words)
    lines = log.read_bytes() + trace.read_bytes()
    assert b"a\33[m?b" in lines
    assert b"[m\n" not in lines


def test_a_question_about_a_name_cannot_command_the_terminal(faulty):
    server = faulty()
    (server.files / HOSTILE).write_bytes(b"content")
    terminal = Terminal(server.client)
    process = terminal.start("rm", "-i", server / "a*c")
    process.expect_exact(SHOWN + "? y/n : ")
    process.sendline("n")
    shown = terminal.finish(process, process.before + process.after)
    assert "\33" not in shown.sent
    (said,) = shown.said
    assert said == f"tslwnfs: {server.remote}/{SHOWN} stays as it is: the answer was no"
    assert (server.files / HOSTILE).exists()


@pytest.mark.parametrize("where", ["remote", "local"])
def test_a_declined_question_is_the_reason(faulty, tmp_path, where):
    server = faulty()
    (server.files if where == "remote" else tmp_path).joinpath("there").write_bytes(b"there")
    there = f"{server.remote}/there" if where == "remote" else tmp_path / "there"
    terminal = Terminal(server.client)
    process = terminal.start("cp", "-i", "/etc/hostname", there)
    process.expect_exact("y/n : ")
    process.sendline("n")
    shown = terminal.finish(process, process.before + process.after)
    assert shown.said == [f"tslwnfs: {there} stays as it is: the answer was no"]


def test_a_trace_without_levels_takes_no_reason_away(faulty, tmp_path):
    server = faulty()
    trace = tmp_path / "trace"
    shown = Terminal(server.client).run("-trace", trace, "mkdir", server / "none/new")
    assert shown.status == 1
    (said,) = shown.said
    assert "server faulty: " in said
    assert trace.read_bytes() == b""


def test_a_trace_of_everything_is_no_trouble_with_the_configuration(faulty, tmp_path):
    server = faulty()
    shown = Terminal(server.client).run("-trace", tmp_path / "t", "-level", "1", "1", "1", "1", "cat", server / "none")
    (said,) = shown.said
    assert "no such file" in said


def without_clocks(trace):
    return re.sub(rb"\[\d+\]", b"[n]", trace)


@pytest.mark.parametrize("words", [["cp", "{remote}/big", "{local}/copy"], ["cat", "{remote}/none"]])
def test_output_log_and_trace_are_the_same_with_and_without(slow, tmp_path, words):
    make_file(slow.files / "big", SIZE)
    words = [word.format(remote=slow.remote, local=tmp_path) for word in words]
    results = []
    for environment in ({}, ALWAYS):
        (tmp_path / "copy").unlink(missing_ok=True)
        logged = ["-trace", tmp_path / "trace", "-level", "3", "0", "3", "3", "-log", tmp_path / "log"]
        done = slow.client.run(*logged, *words, env=environment)
        trace = without_clocks((tmp_path / "trace").read_bytes())
        results.append((done.status, done.out, (tmp_path / "log").read_bytes(), trace))
        assert bool(done.err) == bool(environment)
    assert results[0] == results[1]
    assert results[0][3]


def test_a_trace_at_the_terminal_is_not_disturbed(faulty):
    server = faulty()
    shown = Terminal(server.client).run("-trace", "-level", "3", "0", "0", "3", "cat", server / "none")
    assert (shown.status, shown.said) == (1, [])
    assert "status 2: " in shown.sent
    assert text(failed(1)) in shown.sent
