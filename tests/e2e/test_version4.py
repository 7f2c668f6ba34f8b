"""A server that speaks NFSv4 only: how it is asked, and what is said when it cannot be."""

import pytest

import client
from files import make_entries
from namespace import await_condition
from servers import READ_WRITE, server_block
from test_wire import capture  # noqa: F401  (a fixture)
from texts import SUCCEEDED

pytestmark = pytest.mark.kinds("ganesha4")


@pytest.fixture
def asked(server, installed_home, tmp_path):
    """Runs a command whose tslnfstab describes the server with these settings; gives the run and its trace."""
    program = client.Client(client.copy_of_home(installed_home, tmp_path / "home"), server.client.enter)

    def ask(*words, exports=server.exports, address="127.0.0.1", **settings):
        program.tslnfstab.write_text(server_block("nas4", address, exports, **settings))
        trace = tmp_path / "trace"
        run = program.run("-trace", trace, "-level", "1", "1", "1", "1", *words)
        return run, trace.read_text()

    return ask


def test_a_server_without_version_3_is_asked_in_version_4_by_itself(asked, place):
    (place.files / "f").write_bytes(b"content")
    run, trace = asked("cat", place / "f")
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert b"content" in run.out
    assert "export /rw: not attached:" in trace
    assert "export /rw: attached with NFSv4.2" in trace


def test_a_server_is_asked_on_its_one_port_alone(asked, place, server):
    run, _ = asked("ls", place.remote, address=f"127.0.0.1:{server.nfs_port()}", version="nfsv4.1")
    assert run.status == 0


@pytest.mark.parametrize(
    "version, minor", [("nfsv4", 2), ("NFSv4.1", 1), ("v4.1", 1), ("4.2", 2), ("pnfs", 1)], ids=lambda value: str(value)
)
def test_a_version_is_taken_in_any_spelling(asked, place, version, minor):
    run, trace = asked("ls", place.remote, version=version)
    assert run.status == 0
    assert f"attached with NFSv4.{minor}\n" in trace
    assert ("pNFS is not used" in trace) == (version == "pnfs")


def test_version_4_0_is_refused_with_the_reason(asked, place):
    run, trace = asked("ls", place.remote, version="nfsv4.0")
    assert run.status == 1
    assert "it has no sessions; nfsv4.1 has" in trace


def test_version_3_is_not_replaced_when_it_was_asked_for(asked, place):
    run, trace = asked("ls", place.remote, version="nfsv3")
    assert run.status == 1
    assert "it offers NFSv4 only" in trace
    assert "NFSv4.2" not in trace


def test_an_export_that_is_not_there_is_told_of_with_what_there_is(asked):
    run, trace = asked("ls", READ_WRITE, exports=[("/none", READ_WRITE)], version="nfsv4.1")
    assert run.status == 1
    assert "server nas4: LOOKUP: no such file or directory" in trace
    holds = trace[trace.index("the server's root holds: ") :].splitlines()[0]
    assert "/rw" in holds and "/ro" in holds


def test_a_directory_is_not_removed_as_a_file_nor_a_file_as_a_directory(asked, place):
    (place.files / "d").mkdir()
    (place.files / "f").touch()
    asked("rmdir", place / "f", version="nfsv4.1")
    assert (place.files / "f").is_file()
    asked("rm", place / "d", version="nfsv4.1")
    assert (place.files / "d").is_dir()


FIRST_CONTACT = 1  # the session's own two need no SEQUENCE


def test_a_long_listing_of_a_large_directory_needs_few_calls(server, place, capture):  # noqa: F811
    make_entries(place.files / "many", 10_000)
    listing = server.ok("ls", "-l", place / "many")
    assert listing.count(b"\n  entry") == 10_000
    await_condition(lambda: capture.matching("nfs.opcode == 57 && rpc.msgtyp == 0"), "the farewell")
    asked = capture.matching("nfs.opcode == 53 && rpc.msgtyp == 0")
    assert FIRST_CONTACT < len(asked) <= 40


@pytest.mark.parametrize(
    "words, calls",
    [
        (("cat", "{place}/small"), 1),
        (("cp", "{local}/small", "{place}/new"), 2),
        (("ls", "-l", "{place}/many"), 3),
    ],
    ids=("cat of a small file", "a small file up", "ls -l of 1,000 entries"),
)
def test_a_command_needs_few_calls(server, place, tmp_path, capture, words, calls):  # noqa: F811
    for folder in (place.files, tmp_path):
        (folder / "small").write_bytes(b"x" * 4096)
    make_entries(place.files / "many", 1000)
    server.ok(*(word.format(place=place.remote, local=tmp_path) for word in words))
    await_condition(lambda: capture.matching("nfs.opcode == 57 && rpc.msgtyp == 0"), "the farewell")
    asked = capture.matching("nfs.opcode == 53 && rpc.msgtyp == 0")
    assert FIRST_CONTACT < len(asked) <= FIRST_CONTACT + calls
