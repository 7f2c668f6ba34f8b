"""The session that the README shows is what the commands print today."""

import importlib.machinery
import importlib.util
import pathlib

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
