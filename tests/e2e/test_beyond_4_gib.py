"""Sizes beyond 4 GiB, which 32 bits do not hold: the commands on a sparse file of 5 GiB.

The file is a hole with marks where a wrapped offset would show. Transfers of the whole file are marked `slow`.
"""

import subprocess

import pytest
from texts import SUCCEEDED, banner, failed, not_a_directory

GIB = 1 << 30
SIZE = 5 * GIB + 3
LOW_32_BITS = SIZE - 4 * GIB
MARKS = {0: b"begin", 1024: b"1KiB", LOW_32_BITS: b"wrapped", 4 * GIB - 2: b"4GiB", SIZE - 3: b"end"}
CHUNK = 1 << 20


def make_marked(path):
    with open(path, "wb") as file:
        file.truncate(SIZE)
        for offset, mark in MARKS.items():
            file.seek(offset)
            file.write(mark)
    return path


def is_same(one, other):
    return subprocess.run(["cmp", one, other], check=False).returncode == 0


@pytest.fixture
def big(place):
    """A marked file on the server, taken away at once afterwards: a kept temporary directory would be too large."""
    path = make_marked(place.files / "big")
    yield place / "big"
    path.unlink(missing_ok=True)


@pytest.fixture
def source(tmp_path):
    path = make_marked(tmp_path / "source")
    yield path
    path.unlink(missing_ok=True)


@pytest.mark.slow
def test_a_copy_goes_up_and_a_move_brings_it_down(server, place, source, tmp_path):
    server.ok("copy", source, place / "f")
    assert is_same(place.files / "f", source)
    server.ok("move", place / "f", tmp_path / "down")
    assert is_same(tmp_path / "down", source)
    assert not (place.files / "f").exists()
    (tmp_path / "down").unlink()


@pytest.mark.slow
def test_cat_prints_every_byte(server, place, big):
    expected = banner("CAT", big) + not_a_directory(big)
    command = [*server.client.enter, server.client.home / "bin" / "tslwnfs", "cat", big]
    started = subprocess.Popen(command, stdout=subprocess.PIPE, env=server.client.environment())
    with started as process, open(place.files / "big", "rb") as file:
        assert process.stdout.read(len(expected)) == expected
        while chunk := file.read(CHUNK):
            assert process.stdout.read(len(chunk)) == chunk
        assert process.stdout.read() == SUCCEEDED
    assert process.returncode == 0


def test_the_size_is_shown_whole(server, place, big):
    assert f" {SIZE} ".encode() in server.ok("ls", "-l", place.remote)
    assert server.ok("stat", "-c", "%s", big).endswith(f"\n{SIZE}".encode() + SUCCEEDED)


def test_find_compares_the_low_32_bits(server, place, big):
    assert f"{big} \n".encode() in server.ok("find", place.remote, "-size", str(LOW_32_BITS))
    assert server.run("find", place.remote, "-size", f"+{LOW_32_BITS + 1}").status == 4


def test_a_dd_count_that_wraps(server, place, big, tmp_path):
    """4 GiB + 1 KiB is 1 KiB in 32 bits."""
    server.ok("dd", "-if", big, "-of", tmp_path / "out", "-bs", "512", "-count", str(4 * GIB + 1024))
    assert (tmp_path / "out").read_bytes() == (MARKS[0] + bytes(1024))[:1024]


def test_a_dd_skip_that_wraps(server, place, big, tmp_path):
    blocks = 4 * GIB // 1024 + 1
    server.ok("dd", "-if", big, "-of", tmp_path / "out", "-bs", "1024", "-skip", str(blocks), "-count", "2k")
    assert (tmp_path / "out").read_bytes() == (MARKS[1024] + bytes(2048))[:2048]


def test_a_dd_seek_that_wraps(server, place, tmp_path):
    """The data goes where the wrapped number says; the last resize is to the input's size and cuts it off."""
    (tmp_path / "in").write_bytes(b"x" * 1024)
    blocks = 4 * GIB // 1024 + 1
    server.ok("dd", "-if", tmp_path / "in", "-of", place / "f", "-bs", "1024", "-seek", str(blocks))
    assert (place.files / "f").read_bytes() == bytes(1024)


@pytest.mark.parametrize("option, value", [("-count", str(3 * GIB)), ("-skip", str(3 * GIB // 1024))])
def test_a_number_that_wraps_below_zero_copies_nothing(server, place, big, tmp_path, option, value):
    done = server.run("dd", "-if", big, "-of", tmp_path / "out", "-bs", "1024", option, value)
    assert (done.status, done.out.endswith(failed(1))) == (1, True)
    assert not (tmp_path / "out").exists()


def test_the_file_is_deleted(server, place, big):
    server.ok("del", big)
    assert list(place.files.iterdir()) == []
