"""The file that the utility writes is the file that the library reads."""

import pytest
import servers
from files import digest, make_file
from texts import SUCCEEDED


def test_a_server_block_is_written_and_a_file_copied_through_it(own, tmp_path):
    served = tmp_path / "served"
    served.mkdir()
    source = make_file(tmp_path / "source", 100_000)
    daemon = servers.LoopnfsdProcess(own.home, served)
    try:
        out = own.ok(
            "createtslnfstab", "-s", "loop", "-lp", f"127.0.0.1,{daemon.address}", "-em", "/export,/wnfs-made", "-t", "5"
        )
        assert out == SUCCEEDED
        assert own.tslnfstab.read_text() == (
            "#<server block begin>\n"
            "server: loop\n"
            f"local: 127.0.0.1 \t path: {daemon.address}\n"
            "export: /export \t mount: /wnfs-made\n"
            "mnt_timeout: 5\n"
            "#<server block end>\n"
        )
        own.ok("cp", source, "/wnfs-made/copy")
        assert digest(served / "copy") == digest(source)
    finally:
        daemon.close()


def test_without_its_server_the_path_is_local_again(own, tmp_path):
    """The mount point is a name of tslnfstab only: nothing is there without it."""
    mount = tmp_path / "mounted"
    mount.mkdir()
    (mount / "local-name").touch()
    own.tslnfstab.write_text(servers.server_block("gone", "127.0.0.1:1", [("/export", mount)]))
    assert own.run("ls", mount).status == 1
    own.tslnfstab.unlink()
    assert b"local-name" in own.ok("ls", mount)


def test_the_longest_mount_point_at_a_component_boundary_decides(own, tmp_path):
    outer, inner = tmp_path / "outer", tmp_path / "inner"
    outer.mkdir()
    inner.mkdir()
    daemons = [servers.LoopnfsdProcess(own.home, folder) for folder in (outer, inner)]
    try:
        own.tslnfstab.write_text(
            servers.server_block("outer", daemons[0].address, [("/export", "/wnfs-m")])
            + servers.server_block("inner", daemons[1].address, [("/export", "/wnfs-m/deep")])
        )
        own.ok("mkdir", "/wnfs-m/one")
        own.ok("mkdir", "/wnfs-m/deep/two")
        own.ok("mkdir", "/wnfs-m/deeper")
        assert sorted(path.name for path in outer.iterdir()) == ["deeper", "one"]
        assert [path.name for path in inner.iterdir()] == ["two"]
    finally:
        for daemon in daemons:
            daemon.close()


def test_the_identity_of_the_configuration_is_presented(server, own, place, tmp_path):
    """The server sees the configured user: a directory of another is closed to it."""
    if isinstance(server, servers.Loopnfsd):
        pytest.skip("loopnfsd serves everyone as its own user")
    text = server.client.tslnfstab.read_text().replace("server: ", "uid: 12345\ngid: 12345\nserver: ")
    own.tslnfstab.write_text(text)
    own.enter = server.client.enter
    place.files.chmod(0o700)
    assert own.run("mkdir", place / "refused").status == 1
    place.files.chmod(0o777)
    own.ok("mkdir", place / "made")
    assert (place.files / "made").stat().st_uid == 12345
