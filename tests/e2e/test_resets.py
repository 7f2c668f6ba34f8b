"""Connections that break, and replies that come late, in another order, twice, cut, or never: every command ends as if
nothing had happened."""

import pytest
from amounts import few_and_many
from client import finish
from files import digest, make_file
from test_restart import distances
from texts import SUCCEEDED

BYTES_A_RESET = 2_500_000


@pytest.fixture
def reset_often(relayed, chance):
    """Runs a command that moves BYTES_A_RESET for each reset, and meanwhile resets its connection so often."""

    def run(resets, *words):
        process = relayed.client.start(*words)
        for distance in distances(chance, resets * BYTES_A_RESET, resets):
            relayed.relay.pass_bytes(distance, process)
            relayed.relay.reset()
        relayed.relay.open()
        return finish(process)

    return run


@few_and_many("resets", 10, 100)
def test_an_upload_survives_many_resets(reset_often, place, tmp_path, resets):
    source = make_file(tmp_path / "source", resets * BYTES_A_RESET)
    run = reset_often(resets, "cp", source, place / "copy")
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert digest(place.files / "copy") == digest(source)


@few_and_many("resets", 10, 100)
def test_a_download_survives_many_resets(reset_often, place, tmp_path, resets):
    make_file(place.files / "source", resets * BYTES_A_RESET)
    run = reset_often(resets, "cp", place / "source", tmp_path / "copy")
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert digest(tmp_path / "copy") == digest(place.files / "source")


REPLIES = {
    "delayed": ["rtt=3", "delay=1"],
    "reordered": ["reorder=4"],
    "duplicated": ["duplicate"],
    "delayed, reordered and duplicated": ["rtt=2", "reorder=3", "duplicate"],
    "cut short": ["cut-after=3000001:20"],
    "lost with a reset": ["reset", "cut-after=1500007:20"],
    "short": ["short-read=30001", "short-write=50001"],
}


@pytest.mark.parametrize("faults", REPLIES.values(), ids=list(REPLIES))
def test_a_file_comes_and_goes_whole_with_replies_that_are(faults, faulty, tmp_path):
    server = faulty("--max-read", "64K", "--max-write", "64K")
    source = make_file(tmp_path / "source", 20_000_003)
    server.fault(*faults)
    server.ok("cp", source, server / "copy")
    server.ok("cp", server / "copy", tmp_path / "back")
    assert digest(server.files / "copy") == digest(source) == digest(tmp_path / "back")
    for fault in faults:
        name = fault.partition("=")[0]
        if name not in ("rtt", "delay", "reset"):
            assert server.count(f"fault.{name}") > 0, name


def lose_reply(server, procedure):
    """The server will execute the next call of the procedure, and cut the connection instead of answering."""
    server.fault(f"drop-reply={procedure}:1")


def assert_lost(server, procedure):
    """The call was made twice, so that the command met its own first execution."""
    assert server.count("fault.drop-reply") == 1
    assert server.count(procedure) >= 2


def test_a_directory_that_was_made_counts_as_made_when_the_reply_was_lost(faulty):
    server = faulty()
    lose_reply(server, "MKDIR")
    assert server.ok("mkdir", server / "d").endswith(SUCCEEDED)
    assert_lost(server, "MKDIR")
    assert (server.files / "d").is_dir()


def test_a_directory_that_was_removed_counts_as_removed_when_the_reply_was_lost(faulty):
    server = faulty()
    (server.files / "d").mkdir()
    lose_reply(server, "RMDIR")
    assert server.ok("rmdir", server / "d").endswith(SUCCEEDED)
    assert_lost(server, "RMDIR")
    assert not (server.files / "d").exists()


def test_a_file_that_was_deleted_counts_as_deleted_when_the_reply_was_lost(faulty):
    server = faulty()
    (server.files / "f").touch()
    lose_reply(server, "REMOVE")
    assert server.ok("rm", server / "f").endswith(SUCCEEDED)
    assert_lost(server, "REMOVE")
    assert not (server.files / "f").exists()


def test_permissions_are_set_when_the_reply_was_lost(faulty):
    server = faulty()
    (server.files / "d").mkdir(0o700)
    lose_reply(server, "SETATTR")
    assert server.ok("setattr", server / "d", stdin=b"y\nn\nn\n" * 3).endswith(SUCCEEDED)
    assert_lost(server, "SETATTR")
    assert (server.files / "d").stat().st_mode & 0o777 == 0o700


@pytest.mark.parametrize("procedure", ["CREATE", "WRITE", "COMMIT", "SETATTR"])
def test_a_file_is_copied_up_whole_when_a_reply_was_lost(faulty, tmp_path, procedure):
    server = faulty("--max-write", "64K")
    source = make_file(tmp_path / "source", 1_000_001)
    if procedure == "SETATTR":
        make_file(server.files / "copy", 1_000_002)  # which is cut to its new size
    lose_reply(server, procedure)
    assert server.ok("cp", source, server / "copy").endswith(SUCCEEDED)
    assert_lost(server, procedure)
    assert digest(server.files / "copy") == digest(source)


def test_a_real_failure_is_no_success_after_a_resend(faulty):
    """What is told to a repeated call counts as done only where the first call may have done it."""
    server = faulty()
    (server.files / "d").mkdir()
    (server.files / "d" / "inside").touch()
    lose_reply(server, "RMDIR")
    assert server.run("rmdir", server / "d").status == 1
    assert_lost(server, "RMDIR")
    assert (server.files / "d" / "inside").exists()


def test_a_directory_that_was_there_is_not_taken_for_made_when_the_reply_was_lost(faulty):
    server = faulty()
    (server.files / "d").mkdir()
    lose_reply(server, "MKDIR")
    assert server.run("mkdir", server / "d").status == 1
    assert_lost(server, "MKDIR")
