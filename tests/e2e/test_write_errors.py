"""A server that does not take what it is sent: the copy ends with status 1 and says why in the trace, the source is
intact, and what only has to be waited for or looked up again is no failure."""

import pytest
from client import finish
from files import content, digest, make_file
from texts import SUCCEEDED

SIZE = 5_000_000
REASONS = ["NOSPC", "DQUOT", "IO", "ACCES", "ROFS"]


@pytest.fixture
def traced(tmp_path):
    """Runs a command with a trace and gives the run and the trace's text."""

    def run(server, *words):
        trace = tmp_path / "trace"
        done = server.run("-trace", trace, "-level", "1", "1", "1", "1", *words)
        return done, trace.read_text(errors="replace")

    return run


@pytest.mark.parametrize("procedure, skip", [("WRITE", 0), ("WRITE", 20), ("COMMIT", 0)])
@pytest.mark.parametrize("reason", REASONS)
def test_a_copy_fails_when_the_server_refuses_to_store(faulty, traced, tmp_path, procedure, skip, reason):
    server = faulty("--max-write", "64K")
    source = make_file(tmp_path / "source", SIZE)
    server.fault(f"status={procedure}:{reason}:*:{skip}")
    done, trace = traced(server, "cp", source, server / "copy")
    assert done.status == 1
    assert SUCCEEDED not in done.out
    assert f"server faulty: {procedure}: " in trace
    assert f"(NFS3ERR_{reason})" in trace
    assert source.read_bytes() == content(SIZE)


def test_a_copy_fails_when_the_disk_is_full(faulty, traced, tmp_path):
    server = faulty("--fault", "capacity=2M")
    source = make_file(tmp_path / "source", SIZE)
    done, trace = traced(server, "cp", source, server / "copy")
    assert (done.status, SUCCEEDED in done.out) == (1, False)
    assert "(NFS3ERR_NOSPC)" in trace
    assert source.read_bytes() == content(SIZE)


def test_a_dd_fails_when_the_disk_is_full(faulty, traced, tmp_path):
    server = faulty("--fault", "capacity=2M")
    source = make_file(tmp_path / "source", SIZE)
    done, trace = traced(server, "dd", "-if", source, "-of", server / "copy", "-bs", "64k", "-count", "4m")
    assert (done.status, SUCCEEDED in done.out) == (1, False)
    assert "(NFS3ERR_NOSPC)" in trace


@pytest.mark.parametrize("procedure", ["CREATE", "LOOKUP", "WRITE", "COMMIT", "SETATTR"])
def test_a_server_that_is_not_ready_is_asked_again_during_an_upload(faulty, tmp_path, procedure):
    server = faulty("--max-write", "64K")
    source = make_file(tmp_path / "source", SIZE)
    if procedure == "SETATTR":
        make_file(server.files / "copy", SIZE + 1)  # which is cut to its new size
    server.fault(f"status={procedure}:JUKEBOX:3")
    server.ok("cp", source, server / "copy")
    assert server.count("fault.status") == 3
    assert digest(server.files / "copy") == digest(source)


def test_an_upload_that_stands_still_half_way_does_not_look_whole(faulty, tmp_path):
    server = faulty("--max-write", "64K")
    source = make_file(tmp_path / "source", SIZE)
    server.fault("status=WRITE:JUKEBOX:*:3")  # after three
    process = server.start("cp", source, server / "copy")
    server.await_count("fault.status", 1, process)
    assert (server.files / "copy").stat().st_size <= 3 * 65536
    server.tell("clear status")
    assert finish(process).out.endswith(SUCCEEDED)
    assert digest(server.files / "copy") == digest(source)


@pytest.mark.parametrize("procedure", ["LOOKUP", "READ"])
def test_a_server_that_is_not_ready_is_asked_again_during_a_download(faulty, tmp_path, procedure):
    server = faulty("--max-read", "64K")
    make_file(server.files / "source", SIZE)
    server.fault(f"status={procedure}:JUKEBOX:3")
    server.ok("cp", server / "source", tmp_path / "copy")
    assert server.count("fault.status") == 3
    assert digest(tmp_path / "copy") == digest(server.files / "source")


@pytest.mark.parametrize("procedure", ["LOOKUP", "GETATTR", "READDIRPLUS", "MKDIR"])
def test_a_stale_handle_is_looked_up_again_once(faulty, procedure):
    server = faulty()
    make_file(server.files / "f", 10)
    listing = ["ls", server.remote]
    special = {"MKDIR": ["mkdir", server / "new"], "READDIRPLUS": listing, "GETATTR": listing}
    words = special.get(procedure, ["cat", server / "f"])
    server.fault(f"status={procedure}:STALE:1")
    server.ok(*words)
    assert server.count("fault.status") == 1


@pytest.mark.parametrize("procedure", ["READ", "WRITE", "COMMIT", "SETATTR"])
def test_a_handle_that_is_stale_once_breaks_no_transfer(faulty, tmp_path, procedure):
    server = faulty("--max-read", "64K", "--max-write", "64K")
    source = make_file(tmp_path / "source", SIZE)
    if procedure == "SETATTR":
        make_file(server.files / "copy", SIZE + 1)  # which is cut to its new size
    server.fault(f"status={procedure}:STALE:1")
    server.ok("cp", source, server / "copy")
    server.ok("cp", server / "copy", tmp_path / "back")
    assert server.count("fault.status") == 1
    assert digest(server.files / "copy") == digest(source) == digest(tmp_path / "back")


@pytest.mark.parametrize("procedure", ["READ", "WRITE"])
def test_a_file_that_stays_stale_fails_the_copy_and_leaves_the_source(faulty, traced, tmp_path, procedure):
    server = faulty()
    local = make_file(tmp_path / "local", SIZE)
    remote = make_file(server.files / "remote", SIZE)
    server.fault(f"status={procedure}:STALE:*")
    words = [server / "remote", tmp_path / "copy"] if procedure == "READ" else [local, server / "copy"]
    done, trace = traced(server, "cp", *words)
    assert (done.status, SUCCEEDED in done.out) == (1, False)
    assert "tale" in trace
    assert local.read_bytes() == remote.read_bytes() == content(SIZE)


@pytest.mark.parametrize("reason", ["IO", "ACCES"])
def test_a_download_fails_when_the_server_cannot_read(faulty, traced, tmp_path, reason):
    server = faulty("--max-read", "64K")
    source = make_file(server.files / "source", SIZE)
    server.fault(f"status=READ:{reason}:*:20")
    done, trace = traced(server, "cp", server / "source", tmp_path / "copy")
    assert (done.status, SUCCEEDED in done.out) == (1, False)
    assert "READ: " in trace
    assert source.read_bytes() == content(SIZE)


def test_data_that_a_server_forgets_before_it_is_committed_is_sent_again(faulty, tmp_path):
    """The server loses what it holds, without any connection breaking; only its verifier tells."""
    server = faulty("--max-write", "64K")
    source = make_file(tmp_path / "source", SIZE)
    server.fault("status=COMMIT:JUKEBOX:2", "rate=20M")
    process = server.start("cp", source, server / "copy")
    server.await_count("COMMIT", 1, process)
    assert int(server.tell("held")) > 0
    server.tell("forget")
    assert process.wait() == 0
    process.communicate()
    assert server.count("WRITE") > SIZE // 65536 + 1
    assert digest(server.files / "copy") == digest(source)
