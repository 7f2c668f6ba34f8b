"""The session that the README shows is what the commands print today."""

import importlib.machinery
import importlib.util
import pathlib
import subprocess
import sys

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts" / "recording"


@pytest.fixture
def recording():
    loader = importlib.machinery.SourceFileLoader("recording", str(SCRIPT))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("recording", loader))
    loader.exec_module(module)
    return module


def test_the_picture_shows_what_the_commands_print(recording, installed_home, capsys):
    status = recording.main(["--check", str(installed_home)])
    assert (status, capsys.readouterr().out) == (0, "")


def test_a_picture_that_shows_something_else_is_noticed(recording, installed_home, tmp_path, capsys):
    picture = recording.PICTURE.read_text(encoding="utf-8")
    recording.PICTURE = tmp_path / "session.svg"
    recording.PICTURE.write_text(picture.replace("65023", "65024"), encoding="utf-8")
    assert recording.main(["--check", str(installed_home)]) == 1
    assert "+TWNFS-65023: The command completed successfully." in capsys.readouterr().out


def test_a_picture_that_shows_something_else_before_its_end_is_noticed(recording):
    session = ["$ first", "printed", "$ second"]
    assert not list(recording.changes([["$ first"], session[:2], session], session))
    found = list(recording.changes([["$ first"], ["$ first", "other"], session], session))
    assert found == ["frame 1 of the picture shows what its end does not"]


def test_the_picture_shows_the_session_as_it_goes_on(recording):
    frames = list(recording.frames_of(recording.PICTURE))
    assert len(frames) > len(recording.SESSION) and frames[0] == ["$ " + recording.SESSION[0]]
    assert recording.PICTURE.stat().st_size < 150_000


def test_what_draws_the_picture_is_named_where_it_is_missing(installed_home, tmp_path):
    (tmp_path / "sort").symlink_to("/usr/bin/sort")
    (tmp_path / "id").write_text("#!/bin/sh\necho 1000\n")
    (tmp_path / "id").chmod(0o755)
    command = [sys.executable, SCRIPT, installed_home]
    done = subprocess.run(command, env={"PATH": tmp_path}, stdin=subprocess.DEVNULL, capture_output=True, text=True)
    assert (done.returncode, done.stdout) == (
        1,
        "missing packages: termtosvg\n  as root: apt-get install termtosvg\n",
    )
