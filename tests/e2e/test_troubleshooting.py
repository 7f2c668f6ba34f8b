"""docs/troubleshooting.md quotes what the program really says."""

import contextlib
import pathlib
import re
import socket

import pytest
import servers

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENT = (ROOT / "docs" / "troubleshooting.md").read_text(encoding="utf-8")
MOUNT = "/wnfs-trouble"


def quoted(pattern):
    """The one piece of the document in code form that fits a pattern."""
    found = {text for text in re.findall(r"`([^`\n]+)`", DOCUMENT) if re.search(pattern, text)}
    assert len(found) == 1, (pattern, found)
    return found.pop()


def trace_of(client, trace, *words):
    run = client.run("-trace", trace, "-level", "3", "3", "3", "3", *words)
    return run, trace.read_text(encoding="utf-8")


def test_every_message_it_names_exists():
    catalogue = (ROOT / "catalogue" / "tslwnfs.en.msg").read_text(encoding="utf-8")
    known = set(re.findall(r"^(65\d{3}) ", catalogue, re.MULTILINE))
    named = set(re.findall(r"\b65\d{3}\b", DOCUMENT))
    assert len(named) > 10
    assert named - known == set()


@pytest.mark.parametrize(
    "fault, reason",
    [
        ("silent", "^no answer"),
        ("status=*:ACCES:*", "^MNT of /export"),
        ("status=GETATTR:ACCES:*", "^permission denied"),
        ("rpc-error=*:AUTH_ERROR:*", "^the server refuses the identity"),
        ("status=GETATTR:STALE:*", "stale handle"),
    ],
)
def test_a_path_fails_for_the_reason_quoted(own, tmp_path, fault, reason):
    with contextlib.closing(servers.LoopnfsdProcess(own.home, "--fault", fault, tmp_path)) as daemon:
        own.tslnfstab.write_text(servers.server_block("nas1", daemon.address, [("/export", MOUNT)], mnt_timeout=2))
        run, trace = trace_of(own, tmp_path / "t", "getattr", MOUNT)
    assert run.status == 1
    assert quoted(reason) in trace


@pytest.mark.parametrize(
    "path, settings, reason", [("host.invalid:2049", {}, "no address"), ("127.0.0.1:1", {"nconnect": 99}, "^tslnfstab,")]
)
def test_a_server_that_is_described_wrongly_is_told(own, tmp_path, path, settings, reason):
    own.tslnfstab.write_text(servers.server_block("nas1", path, [("/export", MOUNT)], **settings))
    assert quoted(reason) in trace_of(own, tmp_path / "t", "ls", MOUNT)[1]


def test_a_directory_that_is_not_exported_is_told(own, tmp_path):
    with contextlib.closing(servers.LoopnfsdProcess(own.home, tmp_path)) as daemon:
        own.tslnfstab.write_text(servers.server_block("nas1", daemon.address, [("/nope", MOUNT)]))
        assert quoted("MNT of /nope") in trace_of(own, tmp_path / "t", "ls", MOUNT)[1]


@pytest.mark.parametrize("local, reason", [("127.0.0.1", "^connect: Connection"), ("192.0.2.9", "connect: Cannot")])
def test_a_connection_that_cannot_be_made_is_told(own, tmp_path, local, reason):
    with socket.socket() as nobody:
        nobody.bind(("127.0.0.1", 0))
        address = "127.0.0.1:%d" % nobody.getsockname()[1]
        block = servers.server_block("nas1", address, [("/export", MOUNT)]).replace("local: 127.0.0.1", f"local: {local}")
        own.tslnfstab.write_text(block)
        assert quoted(reason) in trace_of(own, tmp_path / "t", "ls", MOUNT)[1]


@pytest.mark.parametrize(
    "fault, reason", [("read-only", "read-only"), ("capacity=10", "^no space")], ids=["read-only", "full"]
)
def test_an_upload_fails_for_the_reason_quoted(own, tmp_path, fault, reason):
    (tmp_path / "served").mkdir()
    (tmp_path / "f").write_bytes(bytes(5000))
    with contextlib.closing(servers.LoopnfsdProcess(own.home, "--fault", fault, tmp_path / "served")) as daemon:
        own.tslnfstab.write_text(servers.server_block("nas1", daemon.address, [("/export", MOUNT)]))
        run, trace = trace_of(own, tmp_path / "t", "cp", tmp_path / "f", f"{MOUNT}/f")
    assert run.status == 1
    assert quoted(reason) in trace


def test_a_path_below_no_mount_point_is_local(own, tmp_path):
    (tmp_path / "f").touch()
    run, trace = trace_of(own, tmp_path / "t", "cp", tmp_path / "f", tmp_path / "g")
    assert run.status == 0
    assert quoted("on no mount") in trace
    assert "TWNFS-65029" in trace
    trace = trace_of(own, tmp_path / "t", "ls", "/wnfs-nowhere")[1]
    assert all(f"TWNFS-{number}: " in trace for number in (65067, 65066, 65013, 65032))


def test_operands_that_the_program_does_not_take_are_told(own, tmp_path):
    (tmp_path / "f").touch()
    for operand in (tmp_path / "none*", tmp_path / "?"):
        run = own.run("cat", operand)
        assert (run.status, b"TWNFS-65024" in run.out) == (4, True)
    assert own.run("cat", "../f", cwd=tmp_path).status == 1
    (tmp_path / "d").mkdir()
    assert own.run("cat", "../f", cwd=tmp_path / "d").status == 4
