"""A server that is down, or silent: every command ends with status 1 in the time the configuration allows."""

import socket

import pytest
import servers
from files import content, make_file
from texts import copy_banner, failed

MOUNT = "/wnfs-down"
COMMANDS = [
    ["ls", f"{MOUNT}/d"],
    ["cat", f"{MOUNT}/f"],
    ["mkdir", f"{MOUNT}/d"],
    ["rmdir", f"{MOUNT}/d"],
    ["getattr", f"{MOUNT}/d"],
    ["cp", f"{MOUNT}/f", "kept"],
]


@pytest.fixture(params=["refused", "silent"])
def down(request, own):
    """A client whose server refuses connections, or takes them and never says a word."""
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        if request.param == "silent":
            listener.listen(16)
        address = "127.0.0.1:%d" % listener.getsockname()[1]
        own.tslnfstab.write_text(servers.server_block("down", address, [("/export", MOUNT)], mnt_timeout=1))
        yield own


@pytest.mark.parametrize("words", COMMANDS, ids=" ".join)
def test_every_command_fails(down, tmp_path, words):
    kept = make_file(tmp_path / "kept", 10)
    run = down.run(*words, cwd=tmp_path)
    assert run.status == 1
    assert run.out.endswith(failed(1))
    assert kept.read_bytes() == content(10)


def test_an_upload_fails_and_keeps_its_source(down, tmp_path):
    source = make_file(tmp_path / "f", 100)
    run = down.run("cp", source, f"{MOUNT}/f")
    assert (run.status, run.out) == (1, copy_banner(source, f"{MOUNT}/f") + failed(1))
    assert source.read_bytes() == content(100)


def test_local_commands_do_not_wait_for_it(down, tmp_path):
    down.ok("ls", tmp_path)
