"""The installation home: found by its variable, whole without the catalogue, runnable from anywhere."""

import os
import subprocess

import pytest
from files import make_file
from texts import NO_CATALOGUE, SUCCEEDED, banner


def catalogues(home):
    found = list((home / "rdbms").rglob("*.cat"))
    assert found, "the installed home has no message catalogue"
    return found


@pytest.mark.parametrize("home", [None, "", "/" + "h" * 300], ids=["unset", "empty", "too long"])
def test_without_a_home_the_run_ends_silently(local, home):
    for words in (["ls", "/tmp"], ["copy", "a"]):
        run = local.run(*words, env={"TESSEL_HOME": home})
        assert (run.status, run.out, run.err) == (1, b"", b"")


def test_usage_needs_no_home(local):
    assert local.run(env={"TESSEL_HOME": None}).out == local.run().out


def test_a_home_that_is_not_there_still_runs_local_commands(local, tmp_path):
    assert local.ok("ls", tmp_path, env={"TESSEL_HOME": tmp_path / "none"}).startswith(banner("DIR", tmp_path))


def test_without_the_catalogue_the_command_runs_and_says_that_texts_are_missing(own, tmp_path):
    for path in catalogues(own.home):
        path.unlink()
    folder = tmp_path / "d"
    folder.mkdir()
    (folder / "name").touch()
    out = own.ok("ls", "-1", folder)
    assert NO_CATALOGUE in out
    assert out.replace(NO_CATALOGUE, b"") == banner("DIR", folder) + b"name" + b" " * 28 + b"\n"
    assert own.run("ls", folder / "none").status == 1
    assert own.run("nonsense").status == 1


def test_the_catalogue_is_found_from_another_working_directory(local, tmp_path):
    assert local.ok("ls", tmp_path, cwd="/") == banner("DIR", tmp_path) + SUCCEEDED


def test_the_program_runs_by_a_relative_name_and_through_a_link(local, tmp_path):
    program = local.home / "bin" / "tslwnfs"
    link = tmp_path / "link"
    link.symlink_to(program)
    folder = tmp_path / "d"
    folder.mkdir()
    expected = banner("DIR", folder) + SUCCEEDED
    assert local.ok("ls", folder, cwd=local.home / "bin", program="./tslwnfs") == expected
    assert local.ok("ls", folder, program=link) == expected


def test_a_directory_of_the_home_holds_what_an_installation_needs(local):
    for name in ("bin/tslwnfs", "bin/loopnfsd", "lib/libnfstdm.so", "include/tdm.h", "dbs", "rdbms/lib/tdm"):
        assert (local.home / name).exists(), name
    assert os.access(local.home / "bin" / "tslwnfs", os.X_OK)


def test_an_output_that_cannot_be_written_does_not_hang(local, tmp_path):
    make_file(tmp_path / "big", 3_000_000)
    with open("/dev/full", "wb") as full:
        done = subprocess.run(
            [local.home / "bin" / "tslwnfs", "cat", tmp_path / "big"],
            stdout=full,
            env=local.environment(),
            stdin=subprocess.DEVNULL,
            timeout=60,
            check=False,
        )
    assert done.returncode in (0, 1)
