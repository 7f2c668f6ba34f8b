"""Two paths to one server, one of which goes silent: nothing is reset, nothing answers. The transfer goes on over the
other path, and the silent one is used again when it is back."""

import pytest
from client import finish
from files import digest, make_file
from texts import SUCCEEDED

SIZE = 96 << 20
SLOW = "rate=4M"  # of each path: the transfer lasts until it is told to be quick
MIB = 1 << 20


@pytest.fixture
def two_paths(faulty):
    server = faulty("--address", "127.0.0.1", "--address", "127.0.0.2")
    server.fault(SLOW)
    return server


def follow(server, process):
    """Silences the second path in the middle of a transfer, and lets it speak again."""
    server.await_count("path.1", MIB, process)
    server.await_count("path.2", MIB, process)
    server.fault("silent@2")
    first, second = server.count("path.1"), server.count("path.2")
    # More than what could be under way on the first path alone: the requests of the second have gone over to it.
    server.await_count("path.1", first + 20 * MIB, process)
    assert server.count("path.2") <= second + 1 * MIB
    server.tell("clear silent")
    server.await_count("path.2", server.count("path.2") + 2 * MIB, process)
    server.tell("clear rate")


@pytest.mark.slow
def test_an_upload_goes_over_the_other_path_and_comes_back(two_paths, tmp_path):
    source = make_file(tmp_path / "source", SIZE)
    process = two_paths.start("cp", source, two_paths / "copy")
    follow(two_paths, process)
    run = finish(process)
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert digest(two_paths.files / "copy") == digest(source)


def test_a_download_goes_over_the_other_path_and_comes_back(two_paths, tmp_path):
    make_file(two_paths.files / "source", SIZE)
    process = two_paths.start("cp", two_paths / "source", tmp_path / "copy")
    follow(two_paths, process)
    run = finish(process)
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert digest(tmp_path / "copy") == digest(two_paths.files / "source")


@pytest.mark.parametrize("silent", [1, 2])
def test_a_path_that_is_silent_from_the_start_is_sent_nothing_but_a_question(faulty, tmp_path, silent):
    server = faulty("--address", "127.0.0.1", "--address", "127.0.0.2", mnt_timeout=1)
    server.fault(f"silent@{silent}")
    make_file(server.files / "source", 5_000_000)
    server.ok("cp", server / "source", tmp_path / "copy")
    assert digest(tmp_path / "copy") == digest(server.files / "source")
    assert server.count(f"path.{silent}") == 0


@pytest.mark.parametrize("direction", ["upload", "download"])
@pytest.mark.parametrize("slow", [1, 2])
def test_a_slow_path_gets_little_to_do(faulty, tmp_path, direction, slow):
    server = faulty("--address", "127.0.0.1", "--address", "127.0.0.2")
    server.fault(f"rate=1M@{slow}", f"rate=50M@{3 - slow}")
    ours, theirs = make_file(tmp_path / "ours", SIZE), make_file(server.files / "theirs", SIZE)
    if direction == "upload":
        server.ok("cp", ours, server / "copy")
        assert digest(server.files / "copy") == digest(ours)
    else:
        server.ok("cp", server / "theirs", tmp_path / "copy")
        assert digest(tmp_path / "copy") == digest(theirs)
    assert server.count(f"path.{slow}") < 8 * MIB
    assert server.count(f"path.{3 - slow}") > SIZE - 8 * MIB


@pytest.mark.parametrize("slow", [1, 2])
def test_a_short_upload_does_not_wait_for_a_slow_path(faulty, tmp_path, slow):
    server = faulty("--address", "127.0.0.1", "--address", "127.0.0.2")
    server.fault(f"rate=16K@{slow}")  # on which one WRITE takes over a minute
    source = make_file(tmp_path / "source", 20 * MIB)
    server.ok("cp", source, server / "copy")
    assert digest(server.files / "copy") == digest(source)
    assert server.count(f"path.{slow}") < MIB


def test_equal_paths_share_the_work(faulty, tmp_path):
    server = faulty("--address", "127.0.0.1", "--address", "127.0.0.2")
    server.fault("rate=16M")
    source = make_file(tmp_path / "source", SIZE)
    server.ok("cp", source, server / "copy")
    assert min(server.count("path.1"), server.count("path.2")) > SIZE // 4


@pytest.mark.slow
def test_a_transfer_outlives_a_path_that_falls_silent_for_longer_than_it_may_take(faulty, tmp_path):
    server = faulty("--address", "127.0.0.1", "--address", "127.0.0.2", io_timeout=5)
    server.fault("rate=16M")
    source = make_file(tmp_path / "source", SIZE)
    process = server.start("cp", source, server / "copy")
    server.await_count("path.2", MIB, process)
    server.fault("silent@2")
    run = finish(process)
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert digest(server.files / "copy") == digest(source)


def test_a_path_that_leads_nowhere_from_the_start_hinders_nothing(faulty, tmp_path):
    server = faulty("--address", "127.0.0.1", "--address", "127.0.0.2")
    server.fault("silent@2")
    source = make_file(tmp_path / "source", 5_000_000)
    server.ok("cp", source, server / "copy")
    assert digest(server.files / "copy") == digest(source)
