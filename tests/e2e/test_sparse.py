"""Holes: a copy is as sparse as its source, whichever way it goes, and never shows what was there before."""

import os

import pytest

from texts import SUCCEEDED

HOLE = 8 << 20
DATA = os.urandom(64 << 10)
SIZE = 2 * HOLE + len(DATA) + HOLE


def make_sparse(path):
    """A hole, data, a hole up to the end, and in the middle a little that stands by itself."""
    with path.open("wb") as file:
        file.seek(HOLE)
        file.write(DATA)
        file.seek(HOLE + HOLE // 2 + 4096)
        file.write(b"x" * 100)
        file.truncate(SIZE)


def is_sparse(path):
    """Far below its size: not many file systems leave out each and every page."""
    return path.stat().st_blocks * 512 < len(DATA) + (1 << 20)


def assert_copied(run, source, copy):
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert copy.read_bytes() == source.read_bytes()


def test_a_file_goes_to_a_server_and_comes_back_with_its_holes(server, place, tmp_path):
    source = tmp_path / "sparse"
    make_sparse(source)
    assert_copied(server.client.run("cp", source, place / "up"), source, place.files / "up")
    assert is_sparse(place.files / "up")
    assert_copied(server.client.run("cp", place / "up", tmp_path / "down"), source, tmp_path / "down")
    assert is_sparse(tmp_path / "down")


def test_a_file_of_nothing_but_a_hole_keeps_its_size(server, place, tmp_path):
    source = tmp_path / "empty"
    with source.open("wb") as file:
        file.truncate(HOLE + 1)
    for to, copy in ((place / "up", place.files / "up"), (tmp_path / "here", tmp_path / "here")):
        assert_copied(server.client.run("cp", source, to), source, copy)
        assert copy.stat().st_blocks * 512 < 1 << 20
    assert_copied(server.client.run("mv", place / "up", place / "moved"), source, place.files / "moved")
    assert not (place.files / "up").exists()


def test_a_local_copy_has_holes_too(local, tmp_path):
    source = tmp_path / "sparse"
    make_sparse(source)
    assert_copied(local.run("cp", source, tmp_path / "copy"), source, tmp_path / "copy")
    assert is_sparse(tmp_path / "copy")


@pytest.mark.parametrize("size", [SIZE + 1000, HOLE // 2, 0])
def test_a_hole_hides_what_an_overwritten_file_held(server, place, tmp_path, size):
    source = tmp_path / "sparse"
    make_sparse(source)
    (place.files / "old").write_bytes(b"\xff" * size)
    assert_copied(server.client.run("cp", source, place / "old"), source, place.files / "old")
