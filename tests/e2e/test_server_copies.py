"""Copies that a server of NFSv4.2 makes by itself, and holes that it tells, on one that does so in each manner."""

import shutil
import subprocess

import client
import pytest
import servers
from namespace import Namespace, why_impossible
from texts import SUCCEEDED

SIZE = (68 << 20) + 4321  # more than one part, and no whole number of blocks


@pytest.fixture
def nas(faulty):
    def serve(*words):
        return faulty("--versions", "4", *words, version="nfsv4.2")

    return serve


@pytest.fixture
def content(chance):
    return chance.randbytes(1 << 20) * (SIZE >> 20) + chance.randbytes(SIZE % (1 << 20))


def assert_moved_no_bytes(server, operation):
    assert server.count(operation) > 0
    assert (server.count("READ"), server.count("WRITE")) == (0, 0)


@pytest.mark.parametrize(
    "offered, operation", [("clone", "CLONE"), ("copy", "COPY"), ("background", "OFFLOAD_STATUS"), ("clone,copy", "CLONE")]
)
def test_a_copy_within_a_server_is_made_by_it(nas, content, offered, operation):
    server = nas("--copies", offered)
    (server.files / "source").write_bytes(content)
    assert server.ok("cp", server / "source", server / "copy").endswith(SUCCEEDED)
    assert (server.files / "copy").read_bytes() == content
    assert_moved_no_bytes(server, operation)
    server.ok("mv", server / "copy", server / "moved")
    assert (server.files / "moved").read_bytes() == content
    assert not (server.files / "copy").exists()
    assert_moved_no_bytes(server, operation)
    assert server.tell("opens") == "0"


@pytest.fixture
def sharing(tmp_path):
    """A namespace in which tmp_path / "sharing" is a file system whose files can share blocks."""
    why = why_impossible()
    if not why and not shutil.which("mkfs.xfs", path="/usr/sbin:/usr/bin:/sbin:/bin"):
        why = "xfsprogs is not installed"
    if why:
        pytest.skip(why)
    image, folder = tmp_path / "image", tmp_path / "sharing"
    folder.mkdir()
    with open(image, "wb") as out:
        out.truncate(512 << 20)
    subprocess.run(["mkfs.xfs", "-q", "-m", "reflink=1", image], check=True)
    place = Namespace()
    try:
        place.run("mount", "-o", "loop", str(image), str(folder))
    except subprocess.CalledProcessError:
        place.close()
        pytest.skip("this kernel mounts no XFS")
    yield place
    place.close()


def test_a_clone_takes_no_space_where_files_can_share_blocks(own, sharing, tmp_path, content):
    folder = sharing.seen_from_outside(tmp_path / "sharing")
    (folder / "source").write_bytes(content)
    sharing.run("sync", "-f", str(tmp_path / "sharing"))
    used = shutil.disk_usage(folder).used
    words = ("--versions", "4", "--copies", "clone")
    daemon = servers.LoopnfsdProcess(own.home, *words, tmp_path / "sharing", enter=sharing.enter(mounts=True))
    try:
        inside = client.Client(own.home, sharing.enter())
        inside.tslnfstab.write_text(servers.server_block("loop", daemon.address, [("/export", "/m")], version="nfsv4.2"))
        inside.ok("cp", "/m/source", "/m/copy")
        assert (folder / "copy").read_bytes() == content
        assert shutil.disk_usage(folder).used < used + SIZE // 2
    finally:
        daemon.close()


@pytest.mark.parametrize("words", [(), ("--copies", "copy", "--fault", "status=COPY:NOTSUPP:*")])
def test_a_copy_that_the_server_declines_is_read_and_written(nas, content, words):
    server = nas(*words)
    (server.files / "source").write_bytes(content)
    server.ok("cp", server / "source", server / "copy")
    assert (server.files / "copy").read_bytes() == content
    assert server.count("WRITE") > 0


@pytest.mark.parametrize("befalls", ["restart", "fault forget", "lose-sessions", "expire", "forget-clients", "cut"])
def test_a_copy_in_the_background_outlives_what_befalls_the_server(nas, content, befalls):
    server = nas("--copies", "background")
    (server.files / "source").write_bytes(content)
    server.fault("delay=30")
    process = server.start("cp", server / "source", server / "copy")
    server.await_count("OFFLOAD_STATUS", 1, process)
    server.tell(befalls)
    server.tell("clear delay")
    process.communicate(timeout=100)
    assert process.returncode == 0
    assert (server.files / "copy").read_bytes() == content


def test_a_range_is_copied_by_the_server(nas, content):
    server = nas("--copies", "copy")
    (server.files / "source").write_bytes(content)
    (server.files / "into").write_bytes(b"\xff" * 100_000)
    server.ok("dd", "-if", server / "source", "-of", server / "into", "-bs", "4k", "-skip", "3", "-count", "40k")
    assert (server.files / "into").read_bytes()[:40960] == content[3 * 4096 : 3 * 4096 + 40960]


def test_holes_are_neither_read_nor_written(nas, tmp_path):
    server = nas()
    source, data, hole = server.files / "sparse", b"data" * 16384, 16 << 20
    with source.open("wb") as file:
        file.seek(hole)
        file.write(data)
        file.truncate(2 * hole)
    server.ok("cp", server / "sparse", tmp_path / "here")
    assert (tmp_path / "here").read_bytes() == source.read_bytes()
    assert (tmp_path / "here").stat().st_blocks * 512 < 1 << 20
    assert server.count("SEEK") > 0
    assert server.count("READ") < 8
    server.ok("cp", tmp_path / "here", server / "back")
    server.ok("cp", server / "sparse", server / "beside")
    for name in ("back", "beside"):
        assert (server.files / name).read_bytes() == source.read_bytes()
        assert (server.files / name).stat().st_blocks * 512 < 1 << 20
