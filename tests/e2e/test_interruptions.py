"""Ctrl-C, SIGTERM and SIGHUP in the middle of a transfer: what is left of the file, what is read of it, and the status."""

import contextlib
import re
import signal
import threading

import pytest

from client import HANG, finish
from files import make_file
from terminal import Terminal

MB = 1_000_000
SIZE = 60 * MB
RATE = 8 * MB  # bytes a second: nobody is through before the signal
ALWAYS = {"TSLWNFS_TERMINAL": "always"}
SIGNALS = {"SIGINT": 130, "SIGTERM": 143, "SIGHUP": 129}
INCOMPLETE = r"tslwnfs: interrupted: (\S+) is not complete \((at most )?([0-9.]+) of 60.0 MB written\)"


@pytest.fixture
def slow(faulty):
    server = faulty()
    server.fault(f"rate={RATE}")
    return server


def interrupted(terminal, name, *words):
    """Sends the signal once the progress of the command is shown."""
    process = terminal.start(*words)
    process.expect(r"\d+ %")
    process.kill(getattr(signal, name))
    return terminal.finish(process, process.before + process.after)


def assert_told(shown, destination):
    (said,) = shown.said
    told = re.fullmatch(INCOMPLETE, said)
    assert told and told[1] == str(destination), said
    assert not [line for line in shown.lines if " %" in line], shown.lines
    return float(told[3]) * MB, told[2] is not None


@pytest.mark.parametrize("name", SIGNALS)
@pytest.mark.parametrize("command", ["cp", "mv", "dd"])
def test_a_download_that_is_interrupted_says_how_much_there_is(slow, tmp_path, command, name):
    make_file(slow.files / "big", SIZE)
    copy = tmp_path / "copy"
    words = ["dd", "-if", slow / "big", "-of", copy] if command == "dd" else [command, slow / "big", copy]
    shown = interrupted(Terminal(slow.client), name, *words)
    assert shown.status == SIGNALS[name]
    written, _ = assert_told(shown, copy)
    assert abs(copy.stat().st_size - written) <= 0.05 * MB + 1
    assert (slow.files / "big").read_bytes().startswith(copy.read_bytes())
    assert copy.stat().st_size < SIZE


def wait_for_bytes(file, least):
    done = threading.Event()
    for _ in range(HANG * 100):
        if file.exists() and file.stat().st_size >= least:
            return
        done.wait(0.01)
    raise AssertionError(f"{file} did not grow")


@pytest.mark.parametrize("name", SIGNALS)
def test_an_upload_that_is_interrupted_ends_with_a_file_that_looks_so(slow, tmp_path, name):
    source = make_file(tmp_path / "big", SIZE)
    running = slow.client.start("cp", source, slow / "copy", env=ALWAYS)
    wait_for_bytes(slow.files / "copy", 1)
    running.send_signal(getattr(signal, name))
    done = finish(running)
    assert done.status == SIGNALS[name]
    assert re.fullmatch(INCOMPLETE, done.err.decode().replace("\r", "\n").strip().splitlines()[-1].strip())
    left = (slow.files / "copy").stat().st_size
    assert 0 < left < SIZE


def test_an_upload_of_dd_is_cut_back_to_what_was_written(faulty, tmp_path):
    """dd gives its output the size first. The server is fast and the input slow, so that all is confirmed in time."""
    server = faulty()
    running = server.client.start("dd", "-of", server / "copy", "-bs", "1000", env=ALWAYS)
    data = bytes(range(250)) * 4 * 128
    running.stdin.write(b"60000000\n" + data)
    running.stdin.flush()
    wait_for_bytes(server.files / "copy", 1)
    assert (server.files / "copy").stat().st_size == SIZE
    running.send_signal(signal.SIGTERM)
    with contextlib.suppress(BrokenPipeError):  # it may have ended already
        running.stdin.write(data)
        running.stdin.flush()
    done = finish(running)
    assert done.status == SIGNALS["SIGTERM"]
    told = re.search(INCOMPLETE, done.err.decode())
    assert told
    left = (server.files / "copy").stat().st_size
    assert left in (SIZE, *(len(data) * batches for batches in range(4)))
    if told[2] is None:
        assert abs(left - float(told[3]) * MB) <= 0.05 * MB + 1


def test_a_server_that_does_not_answer_holds_nobody_up(faulty, tmp_path):
    server = faulty()
    server.fault("rate=2000000")
    source = make_file(tmp_path / "big", SIZE)
    running = server.client.start("cp", source, server / "copy", env=ALWAYS)
    wait_for_bytes(server.files / "copy", 1)
    server.fault("silent")
    running.send_signal(signal.SIGINT)
    done = finish(running)
    assert done.status == 130
    assert re.search(INCOMPLETE, done.err.decode())[2] == "at most "


def test_a_pipe_is_told_nothing(slow, tmp_path):
    make_file(slow.files / "big", SIZE)
    running = slow.client.start("cp", slow / "big", tmp_path / "copy")
    wait_for_bytes(tmp_path / "copy", 1)
    running.send_signal(signal.SIGTERM)
    done = finish(running)
    assert (done.status, done.err) == (143, b"")


def test_what_writes_no_file_ends_at_once_and_leaves_no_line(slow, tmp_path):
    make_file(slow.files / "big", SIZE)
    terminal = Terminal(slow.client)
    process = terminal.start("-log", tmp_path / "log", "cat", slow / "big")
    process.expect(r"\d+ %")
    before = process.before + process.after
    process.kill(signal.SIGTERM)
    process.expect("\r +\r")
    process.wait()
    assert process.signalstatus == signal.SIGTERM
    assert " %" in before


def test_a_failed_write_says_that_the_file_is_not_complete(faulty, tmp_path):
    server = faulty()
    server.fault("status=WRITE:NOSPC:*")
    source = make_file(tmp_path / "big", SIZE)
    done = server.client.run("cp", source, server / "copy", env=ALWAYS)
    assert done.status == 1
    assert re.fullmatch(INCOMPLETE, done.err.decode().strip().splitlines()[-1])


@pytest.mark.parametrize("command", ["cp", "mv", "dd"])
def test_a_file_that_a_full_server_did_not_take_is_cut_back_to_what_it_took(faulty, tmp_path, command):
    server = faulty()
    server.fault(f"capacity={20 * MB}")
    source = make_file(tmp_path / "big", SIZE)
    data = source.read_bytes()
    # dd reads a pipe: the size of a file would be refused beforehand.
    words = ["dd", "-of", server / "copy", "-bs", "65536"] if command == "dd" else [command, source, server / "copy"]
    running = server.client.start(*words, env={**ALWAYS, "TSLWNFS_STRICT": "options"})
    done = finish(running, data if command == "dd" else b"")
    assert done.status == 1
    said = [line for line in re.split(r"[\r\n]+", done.err.decode()) if line.startswith("tslwnfs: ")]
    assert "NFS3ERR_NOSPC" in said[-2], said
    told = re.fullmatch(INCOMPLETE.replace(" of 60.0", "(?: of 60.0)?"), said[-1])
    assert told and told[2] is None, said
    left = (server.files / "copy").stat().st_size
    assert 10 * MB < left <= 20 * MB
    assert abs(left - float(told[3]) * MB) <= 0.05 * MB + 1
    assert data.startswith((server.files / "copy").read_bytes())


def test_a_file_that_was_there_before_is_not_cut_back(faulty, tmp_path):
    server = faulty()
    before = make_file(server.files / "copy", SIZE).read_bytes()
    server.fault("status=WRITE:IO:*")
    (tmp_path / "other").write_bytes(bytes(SIZE))
    done = server.client.run("cp", tmp_path / "other", server / "copy", env=ALWAYS)
    assert done.status == 1
    assert re.fullmatch(INCOMPLETE, done.err.decode().strip().splitlines()[-1])
    assert (server.files / "copy").read_bytes() == before


def test_a_signal_that_was_ignored_stays_ignored(slow, tmp_path):
    make_file(slow.files / "big", 3 * RATE)
    running = slow.client.start(
        "-c", 'trap "" HUP; exec "$0" cp "$1" "$2"', slow.client.home / "bin" / "tslwnfs", slow / "big", tmp_path / "copy",
        program="/bin/sh",
    )  # fmt: skip
    wait_for_bytes(tmp_path / "copy", 1)
    running.send_signal(signal.SIGHUP)
    assert finish(running).status == 0
