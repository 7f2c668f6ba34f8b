"""A program that has the library loaded and forks: the child starts anew, and the parent and the server notice nothing."""

import pathlib
import subprocess

import client
import pytest
import servers

pytestmark = pytest.mark.plain

SOURCE = pathlib.Path(__file__).parent / "forked.c"


@pytest.fixture(scope="module")
def program(installed_home, tmp_path_factory):
    built = tmp_path_factory.mktemp("forked") / "forked"
    library = [f"-L{installed_home}/lib", f"-Wl,-rpath,{installed_home}/lib", "-lnfstdm"]
    done = subprocess.run(
        ["cc", "-Wall", "-Wextra", "-Werror", f"-I{installed_home}/include", SOURCE, "-o", built, *library],
        capture_output=True,
        text=True,
        check=False,
    )
    assert done.returncode == 0, done.stderr
    return built


def run(caller, program, mount):
    done = caller.run(mount, program=program)
    assert (done.status, done.err) == (0, b"")


def test_a_forked_child_has_a_session_of_its_own_and_leaves_its_parents_alone(program, installed_home, tmp_path):
    caller = client.Client(client.copy_of_home(installed_home, tmp_path / "home"))
    folder = tmp_path / "served"
    folder.mkdir()
    (folder / "file").write_bytes(b"abcd")
    daemon = servers.CountingLoopnfsd(caller.home, folder)
    caller.tslnfstab.write_text(servers.server_block("loop", daemon.address, [("/export", "/mnt/forked")]))
    counts = daemon.counts_of(lambda: run(caller, program, "/mnt/forked"))
    daemon.close()
    assert (folder / "file").read_bytes() == b"abcdefghijkl"
    # Once for the parent, once for the child that used the library, and never for the one that did not.
    assert (counts["MNT"], counts["UMNT"]) == (2, 2)


def test_a_forked_child_is_a_client_of_its_own_to_every_server(program, server):
    (server.writable / "file").write_bytes(b"abcd")
    run(server, program, servers.READ_WRITE)
    assert (server.writable / "file").read_bytes() == b"abcdefghijkl"
    (server.writable / "file").unlink()
