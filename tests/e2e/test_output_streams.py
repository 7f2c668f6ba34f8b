"""Where output goes: standard output, the log file, the trace."""

import os
import re
import shlex
import socket

import pytest

from files import content, make_file
from texts import SUCCEEDED, banner, copy_banner, exists, failed, message

RECORD = re.compile(rb"^\[\d+\],\w+ ", re.MULTILINE)


def test_the_log_takes_what_standard_output_would_have_had(local, tmp_path):
    make_file(tmp_path / "file", 10)
    shown = local.ok("ls", "-1", tmp_path)
    log = tmp_path / "log.txt"
    run = local.run("-log", log, "cat", tmp_path / "file")
    assert (run.status, run.out) == (0, b"")
    assert log.read_bytes() == banner("CAT", tmp_path / "file") + content(10) + SUCCEEDED
    log.unlink()
    assert SUCCEEDED in shown


def test_the_log_is_emptied_first_and_takes_the_verdict_of_a_failure(local, tmp_path):
    log = make_file(tmp_path / "log.txt", 5000)
    run = local.run("-log", log, "ls", tmp_path / "missing")
    assert (run.status, run.out) == (1, b"")
    assert log.read_bytes() == banner("DIR", tmp_path / "missing") + failed(1)


def test_questions_stay_on_standard_output(local, tmp_path):
    source, target = make_file(tmp_path / "one", 1), make_file(tmp_path / "two", 2)
    log = tmp_path / "log.txt"
    run = local.run("-log", log, "cp", "-i", source, target, stdin=b"n\n")
    assert (run.status, run.out) == (1, f"overwrite {target}? y/n : ".encode())
    assert log.read_bytes() == copy_banner(source, target) + exists(target) + failed(1)


def test_a_missing_operand_is_reported_to_the_log(local, tmp_path):
    run = local.run("-log", tmp_path / "log.txt", "copy", "a")
    assert (run.status, run.out) == (1, b"")
    assert (tmp_path / "log.txt").read_bytes() == failed(1)


def test_a_log_that_cannot_be_opened_ends_the_run_silently(local, tmp_path):
    run = local.run("-log", tmp_path / "no" / "log.txt", "ls", tmp_path)
    assert (run.status, run.out) == (1, b"")


def test_a_trace_that_cannot_be_opened_is_told_on_standard_output(local, tmp_path):
    path = tmp_path / "no" / "t.trc"
    run = local.run("-trace", path, "ls", tmp_path)
    assert run.status == 1
    assert run.out.startswith(f"unable to open:{path}. Err info:".encode())
    assert run.out.endswith(b"\n")


def test_a_trace_without_levels_stays_empty(local, tmp_path):
    trace = tmp_path / "t.trc"
    local.ok("-trace", trace, "mkdir", tmp_path / "d")
    assert trace.read_bytes() == b""


def test_the_trace_tells_the_reason_of_a_failure(local, tmp_path):
    trace = tmp_path / "t.trc"
    local.run("-trace", trace, "-level", "0", "0", "0", "3", "cat", tmp_path / "missing")
    text = trace.read_bytes()
    assert RECORD.search(text)
    assert re.search(rb"\[\d+\],catfile " + re.escape(
        message(65061, f"The file {tmp_path / 'missing'} could not be opened.")), text)


def test_level_4_hides_the_records_of_errors(local, tmp_path):
    trace = tmp_path / "t.trc"
    local.run("-trace", trace, "-level", "0", "0", "0", "4", "cat", tmp_path / "missing")
    assert b"catfile" not in trace.read_bytes()


def test_level_1_shows_the_steps_of_a_copy(server, place, tmp_path):
    source, trace = make_file(tmp_path / "f", 10), tmp_path / "t.trc"
    server.ok("-trace", trace, "-level", "0", "0", "0", "1", "cp", source, place / "f")
    text = trace.read_bytes()
    for record in (rb"tdm_create of file .* successful \n", rb"tdm_resize successful:dest \n", rb"tdm_commit successful \n"):
        assert re.search(rb"\[\d+\],copyfile " + record, text), text


def test_a_command_word_after_trace_sends_the_trace_to_standard_error(local, tmp_path):
    run = local.run("-trace", "-level", "0", "0", "0", "3", "cat", tmp_path / "missing")
    assert run.status == 1
    assert b",catfile TWNFS-65061: " in run.err
    assert run.out == banner("CAT", tmp_path / "missing") + failed(1)


def test_the_output_does_not_depend_on_the_trace(local, tmp_path):
    assert local.ok("-trace", tmp_path / "t", "-level", "1", "1", "1", "1", "ls", "/proc/self/ns") == local.ok(
        "ls", "/proc/self/ns"
    )


def test_nfsids_tells_the_identity_presented(local, tmp_path):
    identity = (socket.gethostname(), os.geteuid(), os.getegid())
    assert local.ok("nfsids").decode() == (
        "\nCOMPUTER NAME:             %s\nUID:                        %d\nGID:                        %d\n" % identity
    )
    log = tmp_path / "log.txt"
    assert local.ok("-log", log, "nfsids") == b""
    assert log.read_text() == "\nCOMPUTER NAME:  %s\nUID:              %d\nGID:              %d\n" % identity


def run_in_shell(client, redirection, *words):
    """Runs a command with the redirection of a shell behind it."""
    line = shlex.join([str(client.home / "bin" / "tslwnfs"), *map(str, words)])
    return client.run("-c", f"exec {line} {redirection}", program="/bin/sh")


CLOSED = ["<&- >&-", ">&-", "2>&-", "<&- >&- 2>&-"]


@pytest.mark.parametrize("redirection", CLOSED)
def test_closed_standard_streams_get_into_no_connection_and_no_file(server, place, tmp_path, redirection):
    source = make_file(tmp_path / "source", 3_000_000)
    assert run_in_shell(server.client, redirection, "cp", source, place / "up").status == 0
    assert (place.files / "up").read_bytes() == source.read_bytes()
    assert run_in_shell(server.client, redirection, "cp", place / "up", tmp_path / "down").status == 0
    assert (tmp_path / "down").read_bytes() == source.read_bytes()
    shown = run_in_shell(server.client, redirection, "cat", place / "up")
    assert shown.status == (1 if ">&-" in redirection.replace("2>&-", "") else 0)
    assert (place.files / "up").read_bytes() == source.read_bytes()


# Commands whose result is what they print, and commands that do something. {0} is a file, {1} a directory of its own.
PRINTING = ["ls {1}", "ls -R {1}", "find {1}", "cat {0}", "getattr {1}", "stat {1}", "fsstat {1}", "nfsids", "get_ip_subnet"]
DOING = ["mkdir {1}/new", "cp {0} {1}/new", "rm {0}", "mv {0} {1}/new"]


def fill(words, tmp_path):
    """The words of a command over a file and a directory of its own."""
    file, directory = make_file(tmp_path / "a" / "file", 5), tmp_path / "b"
    directory.mkdir(exist_ok=True)
    (directory / "x").touch()
    return words.format(file, directory).split()


@pytest.fixture
def two(tmp_path):
    (tmp_path / "a").mkdir()
    return tmp_path


@pytest.mark.parametrize("redirection", [">/dev/full", ">&-"])
@pytest.mark.parametrize("words", PRINTING + DOING)
def test_a_lost_standard_output_fails_what_only_prints(server, place, two, words, redirection):
    words = words.replace("stat {1}", "stat " + place.remote)
    done = run_in_shell(server.client, redirection, *fill(words, two))
    lost = any(words.split()[0] == each.split()[0] for each in PRINTING)
    assert (done.status, done.err) == (1 if lost else 0, b"")


@pytest.mark.parametrize("words", PRINTING + DOING)
def test_a_lost_log_fails_what_only_prints(server, place, two, words):
    words = words.replace("stat {1}", "stat " + place.remote)
    done = server.client.run("-log", "/dev/full", *fill(words, two))
    lost = any(words.split()[0] == each.split()[0] for each in PRINTING)
    assert (done.status, done.err) == (1 if lost else 0, b"")


def test_a_lost_output_is_told_at_a_terminal_with_its_reason(server, place, two):
    for words in ("cat {0}", "ls {1}", "find {1}"):
        line = shlex.join([str(server.client.home / "bin" / "tslwnfs"), *fill(words, two)])
        done = server.client.run(
            "-c", f"exec {line} >/dev/full", program="/bin/sh", env={"TSLWNFS_TERMINAL": "always"}
        )
        assert done.status == 1
        assert b"No space left on device" in done.err and b"Success" not in done.err, done.err
        assert b"could not be opened" not in done.err, done.err
