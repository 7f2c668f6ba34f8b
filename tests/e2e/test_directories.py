"""mkdir and rmdir, remote and local."""

import os

import pytest
from files import make_file
from texts import SUCCEEDED, banner, failed


def test_a_remote_directory_is_made_and_removed(server, place):
    path = place / "new"
    assert server.ok("mkdir", path) == banner("MKDIR", path) + SUCCEEDED
    assert (place.files / "new").is_dir()
    assert server.ok("rmdir", path) == banner("RMDIR", path) + SUCCEEDED
    assert not (place.files / "new").exists()


def test_an_existing_directory_is_refused_without_the_parents_option(server, place):
    run = server.run("mkdir", place.remote)
    assert (run.status, run.out) == (1, banner("MKDIR", place.remote) + failed(1))
    assert server.ok("mkdir", "-p", place.remote) == banner("MKDIR", place.remote) + SUCCEEDED


@pytest.mark.parametrize("option", ["-p", "-P"])
def test_missing_parents_are_made_on_request(server, place, option):
    path = place / "one/two/three"
    assert server.run("mkdir", path).status == 1
    server.ok("mkdir", option, path)
    assert (place.files / "one" / "two" / "three").is_dir()


def test_a_file_in_the_way_stops_the_parents(server, place):
    make_file(place.files / "file", 1)
    assert server.run("mkdir", "-p", place / "file/sub").status == 1
    assert (place.files / "file").is_file()


def test_a_directory_with_something_in_it_is_not_removed(server, place):
    make_file(place.files / "file", 1)
    run = server.run("rmdir", place.remote)
    assert (run.status, run.out) == (1, banner("RMDIR", place.remote) + failed(1))
    assert (place.files / "file").exists()


def test_a_missing_directory_is_not_removed(server, place):
    assert server.run("rmdir", place / "missing").status == 1


def test_nothing_is_made_on_a_read_only_export(server, read_only_place):
    assert server.run("mkdir", read_only_place / "new").status == 1
    assert list(read_only_place.files.iterdir()) == []


def test_a_local_directory_is_for_its_owner_only(local, tmp_path):
    path = tmp_path / "new"
    local.ok("mkdir", path)
    assert path.stat().st_mode & 0o7777 == 0o700
    local.ok("rmdir", path)
    assert not path.exists()


def test_the_mask_takes_bits_away_and_never_adds_any(local, tmp_path):
    before = os.umask(0o277)
    try:
        local.ok("mkdir", tmp_path / "new")
    finally:
        os.umask(before)
    assert (tmp_path / "new").stat().st_mode & 0o7777 == 0o500


def test_the_banner_shows_the_operand_without_its_last_slash(local, tmp_path):
    path = tmp_path / "new"
    assert local.ok("mkdir", f"{path}/") == banner("MKDIR", path) + SUCCEEDED


def test_a_missing_relative_path_upwards_may_be_made(local, tmp_path):
    (tmp_path / "here").mkdir()
    local.ok("mkdir", "../new", cwd=tmp_path / "here")
    assert (tmp_path / "new").is_dir()
