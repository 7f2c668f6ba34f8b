"""The recipes of tslwnfs(1), run as they stand there by the shell that a reader would give them to."""

import datetime
import hashlib
import io
import pathlib
import re
import tarfile

import pytest

import servers
from client import Client, copy_of_home
from files import digest, make_file

PAGE = pathlib.Path(__file__).resolve().parents[2] / "man" / "tslwnfs.1"


def recipe(head):
    """The lines below the sentence of EXAMPLES that begins so."""
    examples = PAGE.read_text(encoding="utf-8").split(".Sh EXAMPLES\n")[1].split("\n.Sh ")[0]
    block = re.search(rf"^{re.escape(head)}.*?^\.Bd -literal[^\n]*\n(.*?)^\.Ed$", examples, re.MULTILINE | re.DOTALL)
    assert block, f"{head} is no recipe"
    return block[1].replace(r"\e", "\\").replace(r"\(aq", "'")


@pytest.fixture
def backup(installed_home, tmp_path):
    """A client whose /mnt/backup is a folder, and the shell that runs recipes for it in a directory of their own."""
    caller = Client(copy_of_home(installed_home, tmp_path / "home"))
    served, here = tmp_path / "served", tmp_path / "here"
    served.mkdir()
    here.mkdir()
    server = servers.LoopnfsdProcess(caller.home, served)
    caller.tslnfstab.write_text(servers.server_block("loop", server.address, [("/export", "/mnt/backup")]))

    def run(script):
        path = f"{caller.home / 'bin'}:/usr/sbin:/usr/bin:/sbin:/bin"
        return caller.run("-e", "-c", script, program="/bin/bash", cwd=here, env={"PATH": path})

    yield run, served, here
    server.close()


def test_a_copy_is_verified_by_the_digest_of_what_the_server_has(backup):
    run, served, here = backup
    make_file(here / "a.dbf", 3_000_001)
    (served / "a.dbf").write_bytes((here / "a.dbf").read_bytes())
    same = run(recipe("Verify a copy"))
    assert same.status == 0
    one, other = (line.split()[0] for line in same.out.decode().splitlines())
    assert one == other == hashlib.sha256((here / "a.dbf").read_bytes()).hexdigest()
    make_file(served / "a.dbf", 3_000_000)
    one, other = (line.split()[0] for line in run(recipe("Verify a copy")).out.decode().splitlines())
    assert one != other


def test_a_directory_is_archived_on_a_server_and_unpacked_from_there(backup):
    run, served, here = backup
    (here / "daily").mkdir()
    data = make_file(here / "daily" / "a.dbf", 1_234_567).read_bytes()
    archive, unpack = recipe("Archive a directory").split("tslwnfs dd -if")
    assert run(archive).status == 0
    with tarfile.open(fileobj=io.BytesIO((served / "daily.tar").read_bytes())) as packed:
        assert packed.extractfile("daily/a.dbf").read() == data
    (here / "daily" / "a.dbf").unlink()
    assert run("export TSLWNFS_STRICT=options\ntslwnfs dd -if" + unpack).status == 0
    assert (here / "daily" / "a.dbf").read_bytes() == data


def test_a_directory_is_copied_every_night_and_the_status_tells(backup, tmp_path):
    run, served, _ = backup
    tree = tmp_path / "export"
    (tree / "Sub").mkdir(parents=True)
    make_file(tree / "Sub" / "Full.DBF", 100_000)
    nightly = recipe("Copy a directory every night").replace("/u01/export", str(tree))
    day = datetime.datetime.now(datetime.timezone.utc).date()
    done = run(nightly)
    days = [served / str(day + datetime.timedelta(later)) for later in (0, 1)]  # midnight may pass
    (copy,) = [each for each in days if each.exists()]
    assert (done.status, done.out, done.err) == (0, b"", b"")
    assert digest(copy / "Sub" / "Full.DBF") == digest(tree / "Sub" / "Full.DBF")
    (tree / "dangling").symlink_to("nowhere")
    done = run(nightly)
    assert done.status != 0 and b"dangling" in done.err


def test_backups_that_are_old_are_deleted_and_nothing_else(backup):
    run, served, _ = backup
    today = datetime.datetime.now(datetime.timezone.utc).date()
    old = [str(today - datetime.timedelta(days)) for days in (32, 40, 400)]
    kept = [str(today - datetime.timedelta(days)) for days in (0, 1, 29)] + ["2000", "20 of them", "2001-01-01.keep", "a"]
    for name in old + kept:
        (served / name / "sub").mkdir(parents=True)
        make_file(served / name / "sub" / "f", 10)
    (served / "2002-02-02").write_text("a file of that name")
    assert run(recipe("Delete the directories of backups")).status == 0
    assert sorted(each.name for each in served.iterdir()) == sorted([*kept, "2002-02-02"])
