"""A server that takes every request and answers none: a command waits as long as the configuration says and no longer,
and the trace tells meanwhile that it waits."""

import namespace
import pytest
from client import finish
from files import content, make_file
from texts import failed

NOTICE = "not responding, still trying"
LIMIT = 12  # seconds; the notice comes after 10


def start_traced(server, trace, *words):
    return server.start("-trace", trace, "-level", "1", "1", "1", "1", *words)


def text_of(trace):
    return trace.read_text(errors="replace") if trace.exists() else ""


def await_notice(process, trace):
    """The trace says so while the command still runs."""
    namespace.await_condition(lambda: NOTICE in text_of(trace), NOTICE, process)
    assert process.poll() is None


def start_upload_into_silence(server, trace, source):
    """A copy to a server that falls silent in the middle of it, when the trace says so."""
    server.fault("rate=10M")
    process = start_traced(server, trace, "cp", source, server / "copy")
    server.await_count("received", 5_000_000, process)
    server.fault("silent")
    await_notice(process, trace)
    return process


@pytest.mark.slow
def test_the_first_contact_ends_at_mnt_timeout(faulty, tmp_path):
    server = faulty(mnt_timeout=LIMIT)
    server.fault("silent")
    trace = tmp_path / "trace"
    process = start_traced(server, trace, "ls", server.remote)
    await_notice(process, trace)
    run = finish(process)
    assert (run.status, run.out[-len(failed(1)) :]) == (1, failed(1))
    assert f"no answer within {LIMIT} seconds" in text_of(trace)


@pytest.mark.slow
def test_a_transfer_ends_at_io_timeout(faulty, tmp_path):
    server = faulty(io_timeout=LIMIT)
    source = make_file(tmp_path / "source", 50_000_000)
    trace = tmp_path / "trace"
    run = finish(start_upload_into_silence(server, trace, source))
    assert run.status == 1
    assert f"no answer within {LIMIT} seconds" in text_of(trace)
    assert source.read_bytes() == content(50_000_000)


def test_a_transfer_whose_server_is_gone_ends_at_io_timeout(faulty, tmp_path):
    server = faulty(io_timeout=2)
    make_file(server.files / "source", 50_000_000)
    server.fault("rate=10M")
    trace = tmp_path / "trace"
    process = start_traced(server, trace, "cp", server / "source", tmp_path / "copy")
    server.await_count("sent", 5_000_000, process)
    server.kill()
    assert finish(process).status == 1
    assert "no answer within 2 seconds" in text_of(trace)
    server.start_again()


@pytest.mark.parametrize("words", [["ls", "-l"], ["find"], ["ls", "-lR"], ["rm", "-f", "-r"]], ids=" ".join)
def test_a_walk_over_many_entries_waits_for_the_server_once(faulty, tmp_path, words):
    server = faulty("--fault", "no-readdirplus", io_timeout=2)
    (server.files / "d").mkdir()
    for number in range(1000):
        make_file(server.files / "d" / f"f{number}", 0)
    server.fault("delay=5")
    trace = tmp_path / "trace"
    process = start_traced(server, trace, *words, server / "d")
    server.await_count("LOOKUP", 10, process)
    server.fault("silent")
    assert finish(process).status == 1
    assert "no answer within 2 seconds" in text_of(trace)
    assert "the server does not answer" in text_of(trace)


@pytest.mark.slow
def test_a_server_that_comes_back_in_time_is_no_failure(faulty, tmp_path):
    server = faulty()
    source = make_file(tmp_path / "source", 50_000_000)
    trace = tmp_path / "trace"
    process = start_upload_into_silence(server, trace, source)
    server.tell("clear")
    assert finish(process).status == 0
    assert "ok again" in text_of(trace)
    assert (server.files / "copy").read_bytes() == content(50_000_000)
