"""Links, pipes, sockets and devices: deleted as what they are, and neither entered nor taken for directories."""

import os
import socket

import pytest
from texts import SUCCEEDED, failed, not_a_directory


def grow(folder):
    """A tree with one of everything that is neither file nor directory."""
    (folder / "sub").mkdir(parents=True)
    (folder / "file").write_text("content")
    (folder / "dangling").symlink_to("nowhere")
    (folder / "loop").symlink_to("loop")
    (folder / "up").symlink_to("..")
    (folder / "etc").symlink_to("/etc")
    (folder / "sub" / "dir").symlink_to("../sub")
    os.mkfifo(folder / "pipe")
    with socket.socket(socket.AF_UNIX) as unix:
        here = os.getcwd()
        os.chdir(folder)  # the names of sockets are short
        unix.bind("socket")
        os.chdir(here)


def test_a_remote_tree_of_links_and_special_files_is_deleted(server, place):
    grow(place.files / "d")
    (place.files / "kept").touch()
    server.ok("rm", "-r", place / "d")
    assert os.listdir(place.files) == ["kept"]


def test_a_local_tree_of_links_and_special_files_is_deleted(local, tmp_path):
    grow(tmp_path / "t" / "d")
    (tmp_path / "t" / "kept").touch()
    local.ok("rm", "-r", tmp_path / "t" / "d")
    assert os.listdir(tmp_path / "t") == ["kept"]


@pytest.mark.parametrize("name", ["dangling", "loop", "up", "etc", "pipe", "socket"])
def test_each_is_deleted_by_its_name(server, place, name):
    grow(place.files / "d")
    assert server.ok("rm", place / f"d/{name}").endswith(SUCCEEDED)
    assert not os.path.lexists(place.files / "d" / name)


def test_a_copied_tree_has_no_directories_in_their_place(server, place, tmp_path):
    grow(place.files / "d")
    done = server.run("cp", "-r", place / "d", tmp_path / "down")
    assert sorted(os.listdir(tmp_path / "down")) == ["file", "sub"]
    assert done.out.count(failed(1)) >= 2
    grow(tmp_path / "local")
    server.run("cp", "-r", tmp_path / "local", place / "up")
    assert sorted(os.listdir(place.files / "up")) == ["file", "sub"]


def test_ls_shows_a_special_file_and_find_takes_it_for_no_directory(server, place):
    grow(place.files / "d")
    path = place / "d/pipe"
    assert server.ok("ls", path).startswith(f"DIR {path} : \n".encode() + not_a_directory(path) + path.encode())
    found = server.ok("find", place / "d", "-type", "d")
    assert found.count(b" \n") == 1  # sub; the banner's line ends otherwise


def test_local_devices_are_streams(server, place, tmp_path):
    (place.files / "f").write_bytes(b"x" * 100_000)
    server.ok("cp", place / "f", "/dev/null")
    server.ok("dd", "-if", place / "f", "-of", "/dev/null", "-bs", "4k")
    server.ok("dd", "-if", "/dev/zero", "-of", place / "zeros", "-bs", "1k", stdin=b"10240\n")
    assert (place.files / "zeros").read_bytes() == bytes(10240)
    assert server.ok("ls", "/dev/null").startswith(b"DIR /dev/null : \n/dev/null ")


def test_remote_special_files_are_neither_read_nor_written_nor_moved(server, place, tmp_path):
    os.mkfifo(place.files / "pipe")
    (tmp_path / "f").write_text("kept")
    for words in (
        ["cat", place / "pipe"],
        ["cp", place / "pipe", tmp_path / "down"],
        ["cp", tmp_path / "f", place / "pipe"],
        ["mv", place / "pipe", tmp_path / "down"],
        ["mv", tmp_path / "f", place / "pipe"],
        ["mv", tmp_path / "f", "/dev/null"],
        ["dd", "-if", tmp_path / "f", "-of", place / "pipe"],
    ):
        assert server.run(*words).status == 1, words
    assert os.listdir(place.files) == ["pipe"]
    assert os.listdir(tmp_path) == ["f"]
