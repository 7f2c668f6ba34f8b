"""cat: a file's bytes between the banner and the verdict, and not one more."""

import pytest
from files import content, make_file
from texts import SUCCEEDED, banner, failed, not_a_directory

SIZES = [0, 1, 511, 512, 513, 32257, 32700, 32767, 32768, 32769, 65300, 1_000_000]


@pytest.mark.parametrize("size", SIZES)
def test_a_remote_file(server, place, size):
    make_file(place.files / "data", size)
    path = place / "data"
    assert server.ok("cat", path) == banner("CAT", path) + not_a_directory(path) + content(size) + SUCCEEDED


@pytest.mark.parametrize("size", SIZES)
def test_a_local_file(local, tmp_path, size):
    path = make_file(tmp_path / "data", size)
    assert local.ok("cat", path) == banner("CAT", path) + content(size) + SUCCEEDED


def test_a_file_of_a_read_only_export_keeps_its_times(server, read_only_place):
    source = make_file(read_only_place.files / "data", 1000)
    before = source.stat()
    assert content(1000) in server.ok("cat", read_only_place / "data")
    assert source.stat().st_ctime_ns == before.st_ctime_ns


def test_a_directory_fails_without_a_message_of_its_own(server, place):
    run = server.run("cat", place.remote)
    assert (run.status, run.out) == (1, banner("CAT", place.remote) + failed(1))


def test_a_missing_file_fails(server, place):
    run = server.run("cat", place / "missing")
    assert (run.status, run.out) == (1, banner("CAT", place / "missing") + failed(1))


def test_a_wildcard_prints_each_file(server, place):
    (place.files / "a.txt").write_bytes(b"one")
    (place.files / "b.txt").write_bytes(b"two")
    out = server.ok("cat", place / "*.TXT")
    assert out.count(SUCCEEDED) == 2
    assert b"not a directoryone" in out and b"not a directorytwo" in out


def test_the_status_is_that_of_the_last_failure_among_several(local, tmp_path):
    for name in ("a", "B", "c"):
        make_file(tmp_path / name, 4)
    run = local.run("cat", tmp_path / "*")
    assert run.status == 1
    assert run.out.count(SUCCEEDED) == 2
    assert banner("CAT", tmp_path / "b") + failed(1) in run.out
