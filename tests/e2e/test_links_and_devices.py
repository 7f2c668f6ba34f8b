"""Links, pipes, sockets and devices: deleted as what they are, and neither entered nor taken for directories."""

import os
import socket

import pytest
from files import content
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


def test_dd_reads_what_has_no_size_until_its_end(server, place, tmp_path):
    data = content(300_001)
    for number, output in enumerate((tmp_path / "out", place / "out")):
        server.ok("dd", "-if", "/dev/stdin", "-of", output, "-bs", "4k", stdin=data)
        assert (tmp_path / "out", place.files / "out")[number].read_bytes() == data
        server.ok("dd", "-if", "/proc/version", "-of", output)
        assert (tmp_path / "out", place.files / "out")[number].read_bytes() == open("/proc/version", "rb").read()
        server.ok("dd", "-if", "/dev/zero", "-of", output, "-bs", "1k", "-count", "10k")
        assert (tmp_path / "out", place.files / "out")[number].read_bytes() == bytes(10240)


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


def grow_links(folder):
    """Directories reached through links, and links that go up from where they really are."""
    (folder / "real" / "sub").mkdir(parents=True)
    (folder / "real" / "file").write_bytes(b"x" * 77)
    (folder / "real" / "sub" / "up").symlink_to("../file")
    (folder / "file").write_bytes(b"y" * 5)
    (folder / "link").symlink_to("real")
    (folder / "deep").symlink_to("real/sub")



def lines_of_find(out):
    return sorted(line.rsplit(b"not a directory", 1)[-1] for line in out.splitlines() if line.endswith(b" "))


def behind_links(run, base):
    """What commands see of such a tree: a wildcard's, find's and stat -L's results."""
    assert run("cat", f"{base}/link/f*").out.count(b"x" * 77) == 1
    assert lines_of_find(run("find", f"{base}/link", "-name", "f*").out) == [f"{base}/link/file ".encode()]
    described = run("stat", "-L", "-c", "size=%s.", f"{base}/deep/up").out
    assert b"size=" in described
    return described.split(b"size=")[1].split(b".")[0].strip()


def test_directories_behind_links_are_read(server, place, local, tmp_path):
    grow_links(place.files)
    grow_links(tmp_path)
    assert behind_links(server.run, place.remote) == b"77"
    assert behind_links(local.run, tmp_path) == b"77"


def test_find_follow_ends_however_links_lead_to_each_other(server, place, local, tmp_path):
    for folder in (place.files, tmp_path):
        (folder / "d").mkdir()
        (folder / "d" / "f").touch()
        (folder / "d" / "here").symlink_to(".")
        (folder / "d" / "twice").symlink_to("here/here")
        (folder / "d" / "round").symlink_to("here/../d")
        (folder / "d" / "self").symlink_to("self")
    assert lines_of_find(server.ok("find", place / "d", "-follow")) == [f"{place.remote}/d/f ".encode()]
    assert lines_of_find(local.ok("find", tmp_path / "d", "-follow")) == [f"{tmp_path}/d/f ".encode()]


def test_a_link_on_a_server_leads_to_no_file_of_the_client(server, place, tmp_path):
    (tmp_path / "d").mkdir()
    victim = tmp_path / "d" / "victim"
    victim.touch()
    (place.files / "out").symlink_to(tmp_path / "d")
    (place.files / "file").symlink_to(victim)
    server.run("find", place.remote, "-follow", "-name", "v*", "-exec", "rm", "{}")
    assert victim.exists()
    done = server.run("stat", "-L", place / "file", env={"TSLWNFS_TERMINAL": "always"})
    assert done.status == 1
    assert b"which is on no mount" in done.err


def test_a_wildcard_never_moves_two_files_to_one_name(server, place, tmp_path):
    for name in ("two", "six"):
        (tmp_path / name).write_text(name)
    done = server.run("mv", tmp_path / "*", place / "one*")
    assert done.status == 1
    assert len(os.listdir(place.files)) == len(os.listdir(tmp_path)) == 1
