"""One file by two paths: two mounts of an export, two blocks for one server, an export inside another, links, and the
server's own folder beside a mount of it. Nothing is copied or moved onto itself, or into itself."""

import os

import pytest
from files import make_file

import client
import servers

DATA = os.urandom(70_001)


class Ways:
    """A client that has several ways to a place's files."""

    def __init__(self, server, place, home):
        self.client = client.Client(home, server.client.enter)
        block = server.client.tslnfstab.read_text()
        export = next(line for line in block.splitlines() if line.endswith(servers.READ_WRITE))
        twice = export.replace(servers.READ_WRITE, "/wnfs-e2e-twice")
        again = block.replace("server: ", "server: again-").replace("/wnfs-e2e-", "/wnfs-again-")
        self.client.tslnfstab.write_text(block.replace(export, f"{export}\n{twice}") + again)
        self.to = {
            "mount": place.remote,
            "twice": place.remote.replace(servers.READ_WRITE, "/wnfs-e2e-twice"),
            "again": place.remote.replace("/wnfs-e2e-", "/wnfs-again-"),
            "folder": str(place.files),
        }
        self.run = self.client.run


@pytest.fixture
def ways(server, place, own):
    return Ways(server, place, own.home)


PAIRS = [("mount", "twice"), ("mount", "again"), ("mount", "folder"), ("folder", "mount")]


@pytest.mark.parametrize("command", ["mv", "cp"])
@pytest.mark.parametrize("one, other", PAIRS)
def test_a_file_stays_when_it_is_its_own_destination(ways, place, command, one, other):
    (place.files / "f").write_bytes(DATA)
    (place.files / "l").symlink_to("f")
    for name in ("f", "l"):
        done = ways.run(command, f"{ways.to[one]}/f", f"{ways.to[other]}/{name}", env={"TSLWNFS_TERMINAL": "always"})
        assert (done.status, b"are the same file" in done.err) == (1, True), done
        assert (place.files / "f").read_bytes() == DATA


def test_dd_does_not_write_a_file_onto_itself(ways, place):
    (place.files / "f").write_bytes(DATA)
    for one, other in PAIRS:
        assert ways.run("dd", "-if", f"{ways.to[one]}/f", "-of", f"{ways.to[other]}/f").status == 1
        assert (place.files / "f").read_bytes() == DATA


def test_a_twin_in_content_is_another_file(ways, place):
    for name in ("a", "b"):
        (place.files / name).write_bytes(DATA)
        os.utime(place.files / name, (1, 1))
    for one, other in PAIRS:
        assert ways.run("cp", f"{ways.to[one]}/a", f"{ways.to[other]}/b").status == 0, (one, other)
    assert ways.run("mv", f"{ways.to['mount']}/a", f"{ways.to['again']}/b").status == 0
    assert ((place.files / "a").exists(), (place.files / "b").read_bytes() == DATA) == (False, True)


@pytest.mark.parametrize("one, other", PAIRS)
def test_a_tree_is_not_copied_into_itself(ways, place, one, other):
    inner = place.files / "tree" / "inner"
    inner.mkdir(parents=True)
    (inner / "f").write_bytes(DATA)
    (place.files / "link").symlink_to("tree/inner")
    for target in ("tree/new", "tree/inner/new", "link/new", "link"):
        done = ways.run("cp", "-r", f"{ways.to[one]}/tree", f"{ways.to[other]}/{target}")
        assert done.status == 1, (target, done)
        assert [entry.name for entry in inner.iterdir()] == ["f"]
        assert [entry.name for entry in inner.parent.iterdir()] == ["inner"]
    assert ways.run("cp", "-r", f"{ways.to[one]}/tree", f"{ways.to[other]}/beside").status == 0
    assert (place.files / "beside" / "inner" / "f").read_bytes() == DATA


class Nested:
    """A server that exports a folder and one inside it, under the local directory `mount`."""

    def __init__(self, own, tmp_path):
        self.files = tmp_path / "all"
        self.inside = self.files / "tree" / "inside"
        self.inside.mkdir(parents=True)
        (self.files / "tree" / "f").write_bytes(DATA)
        self.mount = tmp_path / "mnt"
        self.daemon = servers.LoopnfsdProcess(
            own.home,
            "--export",
            f"/all={self.files}",
            "--export",
            f"/inside={self.inside}",
            "--export",
            f"/ro={self.files},ro",
        )
        exports = [("/all", self.mount / "all"), ("/inside", self.mount / "inside"), ("/ro", self.mount / "ro")]
        own.tslnfstab.write_text(servers.server_block("nested", self.daemon.address, exports))
        self.run, self.close = own.run, self.daemon.close


@pytest.fixture
def nested(own, tmp_path):
    made = Nested(own, tmp_path)
    yield made
    made.close()


def test_a_file_is_recognised_in_an_export_inside_another(nested):
    (nested.inside / "f").write_bytes(DATA)
    assert nested.run("mv", nested.mount / "all/tree/inside/f", nested.mount / "inside/f").status == 1
    assert nested.run("mv", nested.mount / "inside/f", nested.mount / "ro/tree/inside/f").status == 1
    assert (nested.inside / "f").read_bytes() == DATA


def test_a_tree_that_is_copied_into_an_export_inside_it_ends(nested):
    nested.run("cp", "-r", nested.mount / "all/tree", nested.mount / "inside/copy")
    assert (nested.inside / "copy" / "f").read_bytes() == DATA
    assert not (nested.inside / "copy" / "inside").exists()


@pytest.mark.parametrize("down", [False, True], ids=["read-only", "down"])
def test_a_move_that_its_server_refuses_leaves_nothing_on_the_local_disk(nested, tmp_path, down):
    source = make_file(tmp_path / "source", 1000)
    sent = source.read_bytes()
    (nested.mount / "ro").mkdir(parents=True)
    if down:
        nested.daemon.kill()
    trace = tmp_path / "trace"
    words = ["-trace", trace, "-level", "3", "3", "3", "3", "mv", source, nested.mount / "ro" / "f"]
    done = nested.run(*words, env={"TSLWNFS_TERMINAL": "always"})
    assert (done.status, source.read_bytes() == sent) == (1, True)
    assert list((nested.mount / "ro").iterdir()) == []
    assert "TWNFS-65029" in trace.read_text()
    assert b"server nested" in done.err
    if down:
        nested.daemon.start_again()
