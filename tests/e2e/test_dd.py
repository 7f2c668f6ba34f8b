"""dd: blocks between a server, the local disk and the standard streams."""

import subprocess

import pytest

from texts import SUCCEEDED, failed

SIZE = 100_003
BLOCKS = [1, 7, 512, 4096, 65536, 1 << 20]


def content(size=SIZE):
    return bytes(i * 7 % 251 for i in range(size))


def coreutils(source, *options):
    return subprocess.run(["dd", f"if={source}", "status=none", *options], capture_output=True, check=True).stdout


@pytest.fixture
def source(tmp_path):
    (tmp_path / "source").write_bytes(content())
    return tmp_path / "source"


@pytest.mark.parametrize("block", BLOCKS[1:])
def test_a_file_goes_up_and_comes_down_in_blocks_of_any_size(server, place, source, tmp_path, block):
    assert server.ok("dd", "-if", source, "-of", place / "up", "-bs", str(block)).endswith(SUCCEEDED)
    assert (place.files / "up").read_bytes() == content()
    server.ok("dd", "-if", place / "up", "-of", tmp_path / "down", "-bs", str(block))
    assert (tmp_path / "down").read_bytes() == content()
    server.ok("dd", "-if", place / "up", "-of", place / "across", "-bs", str(block))
    assert (place.files / "across").read_bytes() == content()


def test_blocks_of_one_byte_are_enough(server, place, tmp_path):
    (tmp_path / "small").write_bytes(content(700))
    server.ok("dd", "-if", tmp_path / "small", "-of", place / "small", "-bs", "1")
    assert (place.files / "small").read_bytes() == content(700)


@pytest.mark.parametrize("ibs, obs", [(512, 4096), (4096, 512), (7, 64), (1000, 1)])
def test_different_block_sizes_lose_nothing(server, place, source, tmp_path, ibs, obs):
    (place.files / "in").write_bytes(content())
    server.ok("dd", "-if", place / "in", "-of", tmp_path / "out", "-ibs", str(ibs), "-obs", str(obs))
    assert (tmp_path / "out").read_bytes() == content()


@pytest.mark.parametrize("skip", [0, 1, 17])
def test_a_skip_and_a_count_give_what_coreutils_gives(server, place, source, tmp_path, skip):
    (place.files / "in").write_bytes(content())
    count = 10 * 512
    words = ["-ibs", "512", "-obs", "512", "-skip", str(skip), "-count", str(count)]
    expected = coreutils(source, "bs=512", f"skip={skip}", "count=10")
    server.ok("dd", "-if", place / "in", "-of", tmp_path / "remote", *words)
    assert (tmp_path / "remote").read_bytes() == expected
    server.ok("dd", "-if", source, "-of", tmp_path / "local", *words)
    assert (tmp_path / "local").read_bytes() == expected


@pytest.mark.parametrize("block", BLOCKS)
def test_a_skip_and_a_seek_in_blocks_of_any_size(server, place, tmp_path, block):
    """A local output gets what coreutils gives it. A remote one is at last cut, or filled up, to the input's size."""
    data = content(5000)
    (tmp_path / "in").write_bytes(data)
    (place.files / "in").write_bytes(data)
    skip, seek = (3, 2) if block < 1000 else (0, 1)
    coreutils(tmp_path / "in", f"of={tmp_path / 'expected'}", f"bs={block}", f"skip={skip}", f"seek={seek}")
    expected = (tmp_path / "expected").read_bytes()
    for number, source in enumerate((tmp_path / "in", place / "in")):
        words = ["-if", source, "-bs", str(block), "-skip", str(skip), "-seek", str(seek)]
        server.ok("dd", "-of", tmp_path / "out", *words)
        assert (tmp_path / "out").read_bytes() == expected
        server.ok("dd", "-of", place / f"out{number}", *words)
        assert (place.files / f"out{number}").read_bytes() == expected.ljust(5000, b"\0")[:5000]


def test_standard_input_goes_to_a_server_and_its_size_is_asked_for(server, place):
    data = content(5000)
    done = server.run("dd", "-of", place / "f", "-bs", "1000", stdin=b"5000\n" + data)
    assert done.status == 0
    assert done.out.startswith(b"DD:\nreading from standard input \nenter the maximum  file size You want \n")
    assert (place.files / "f").read_bytes() == data


def test_data_to_standard_output_stands_between_the_lines(server, place):
    (place.files / "f").write_bytes(content(3000))
    done = server.run("dd", "-if", place / "f", "-bs", "1000")
    assert done.status == 0
    assert content(3000) in done.out
    assert b"redirecting to stdout\n" in done.out


def test_a_count_below_the_block_size_copies_nothing(server, place, source):
    done = server.run("dd", "-if", source, "-of", place / "f", "-bs", "512", "-count", "10")
    assert (done.status, done.out.endswith(failed(1))) == (1, True)


def test_a_skip_beyond_a_remote_input_copies_nothing(server, place, tmp_path):
    (place.files / "f").write_bytes(b"x" * 1000)
    done = server.run("dd", "-if", place / "f", "-of", tmp_path / "out", "-ibs", "512", "-skip", "2")
    assert done.status == 1
    assert not (tmp_path / "out").exists() or (tmp_path / "out").read_bytes() == b""
