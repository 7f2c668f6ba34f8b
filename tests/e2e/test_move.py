"""move and delete: what is gone from one place stands in the other, or nothing is gone."""

import os

import pytest
from amounts import few_and_many
from files import grow_tree
from texts import SUCCEEDED, failed

DATA = os.urandom(300_001)


def test_a_file_moves_up_and_down_and_across(server, place, tmp_path):
    (tmp_path / "f").write_bytes(DATA)
    assert server.ok("mv", tmp_path / "f", place / "up").endswith(SUCCEEDED)
    assert (place.files / "up").read_bytes() == DATA
    assert not (tmp_path / "f").exists()
    server.ok("mv", place / "up", place / "across")
    assert (place.files / "across").read_bytes() == DATA
    assert not (place.files / "up").exists()
    server.ok("mv", place / "across", tmp_path / "down")
    assert (tmp_path / "down").read_bytes() == DATA
    assert not (place.files / "across").exists()


def test_a_file_keeps_its_name_in_a_directory(server, place, tmp_path):
    (tmp_path / "Name").write_bytes(DATA)
    (place.files / "dir").mkdir()
    server.ok("mv", tmp_path / "Name", place / "dir")
    assert (place.files / "dir" / "name").read_bytes() == DATA


def test_a_directory_is_not_moved(server, place, tmp_path):
    (place.files / "dir").mkdir()
    done = server.run("mv", "-r", place / "dir", tmp_path / "dir")
    assert (done.status, (place.files / "dir").is_dir()) == (1, True)


def test_a_move_onto_itself_loses_nothing(server, place):
    (place.files / "f").write_bytes(DATA)
    (place.files / "l").symlink_to("f")
    for target in ("f", "l"):
        assert server.run("mv", place / "f", place / target).status == 1
        assert (place.files / "f").read_bytes() == DATA


def test_several_files_do_not_move_onto_one_name(server, place, tmp_path):
    for name in ("a", "b"):
        (tmp_path / name).write_text(name)
    server.run("mv", f"{tmp_path}/?", place / "one")
    server.run("mv", f"{tmp_path}/*", place / "one")
    left = {path.read_text() for path in tmp_path.iterdir() if path.is_file()}
    assert left | {(place.files / "one").read_text()} == {"a", "b"}


def test_a_declined_move_leaves_both_files(server, place, tmp_path):
    (tmp_path / "f").write_bytes(DATA)
    (place.files / "f").write_bytes(b"old")
    done = server.run("mv", "-i", tmp_path / "f", place / "f", stdin=b"n\n")
    assert done.status == 1
    assert (tmp_path / "f").read_bytes() == DATA
    assert (place.files / "f").read_bytes() == b"old"


def test_a_source_that_may_not_be_deleted_stays_and_the_copy_too(server, place, read_only_place, tmp_path):
    (read_only_place.files / "f").write_bytes(DATA)
    done = server.run("mv", read_only_place / "f", tmp_path / "f")
    assert (done.status, done.out.endswith(failed(1))) == (1, True)
    assert (read_only_place.files / "f").read_bytes() == DATA
    assert (tmp_path / "f").read_bytes() == DATA


@few_and_many("branches", (3, 19), range(20))
def test_a_tree_is_deleted_and_nothing_is_left(server, place, branches):
    grow_tree(place.files / "t", branches)
    (place.files / "outside").touch()
    (place.files / "t" / "link").symlink_to("../outside")
    assert server.run("rm", place / "t").status == 1
    assert server.run("rm", "-r", place / "t").status == 0
    assert sorted(path.name for path in place.files.iterdir()) == ["outside"]


@pytest.mark.parametrize("answer, status", [(b"y\n", 0), (b"yes\n", 0), (b"Y\nn\n", 1), (b"", 1)])
def test_deleting_asks_when_told_to(server, place, answer, status):
    (place.files / "f").touch()
    done = server.run("del", "-i", place / "f", stdin=answer)
    assert (done.status, (place.files / "f").exists()) == (status, status != 0)
    assert f"delete {place / 'f'}? y/n : ".encode() in done.out
