"""ls and dir: three layouts, recursion, and every name exactly once."""

import re
import time

import pytest
from files import make_file
from texts import SUCCEEDED, banner, failed, not_a_directory


def padded(name):
    return name.encode() + b" " * (31 if len(name) > 31 else 31 - len(name))


def rows(*names):
    return b"".join(padded(name) + b" \n" for name in names)


def clock(seconds):
    """A time as the C library's ctime writes it, its line feed included (the runs are in UTC)."""
    return time.asctime(time.gmtime(seconds)).encode() + b"\n"


def remote_long(path, name):
    status = path.stat()
    letters = "".join(letter if status.st_mode & (0x100 >> bit) else "-" for bit, letter in enumerate("rwx" * 3))
    kind = "d" if path.is_dir() else "-"
    head = f"\n{kind}{letters}  {status.st_uid}  {status.st_gid}  {status.st_size} ".encode()
    return head + clock(status.st_mtime) + b"  " + padded(name)


def test_one_name_a_line(server, place):
    make_file(place.files / "abc", 3)
    assert server.ok("ls", place.remote) == banner("DIR", place.remote) + rows("abc") + SUCCEEDED


@pytest.mark.parametrize("length", [30, 31, 32, 40, 255])
def test_names_are_padded_to_their_column(server, place, length):
    make_file(place.files / ("n" * length), 0)
    assert server.ok("ls", "-1", place.remote) == banner("DIR", place.remote) + rows("n" * length) + SUCCEEDED


def test_the_long_layout_shows_the_attributes(server, place):
    make_file(place.files / "data", 12345).chmod(0o640)
    expected = banner("DIR", place.remote) + not_a_directory(place / "data")
    expected += remote_long(place.files / "data", "data") + SUCCEEDED
    assert server.ok("ls", "-l", place.remote) == expected


def test_the_long_layout_shows_directories(server, place):
    (place.files / "sub").mkdir(0o750)
    expected = banner("DIR", place.remote) + remote_long(place.files / "sub", "sub") + SUCCEEDED
    assert server.ok("ls", "-l", place.remote) == expected


def test_dot_names_are_shown_on_request(server, place):
    make_file(place.files / ".hidden", 0)
    assert server.ok("ls", place.remote) == banner("DIR", place.remote) + SUCCEEDED
    assert server.ok("ls", "-a", place.remote) == (
        banner("DIR", place.remote) + b". \n .. \n" + rows(".hidden") + SUCCEEDED
    )


def test_the_order_is_reversed_on_request(server, place):
    for number in range(20):
        make_file(place.files / f"file{number}", 0)
    forth = server.ok("ls", "-1", place.remote).splitlines()
    back = server.ok("ls", "-r", place.remote).splitlines()
    assert len(forth) == 22
    assert back[1:-1] == forth[1:-1][::-1]


def test_columns_are_filled_downwards(server, place):
    for number in range(5):
        make_file(place.files / f"file{number}", 0)
    names = [line.split()[0] for line in server.ok("ls", "-1", place.remote).splitlines()[1:-1]]
    cells = [padded(name.decode()) for name in names]
    expected = cells[0] + cells[2] + cells[4] + b"\n" + cells[1] + cells[3] + b"\n"
    assert server.ok("ls", "-C", place.remote) == banner("DIR", place.remote) + expected + SUCCEEDED


def test_a_file_is_listed_by_its_resolved_path(server, place):
    make_file(place.files / "f", 3)
    path = place / "f"
    assert server.ok("ls", path) == banner("DIR", path) + not_a_directory(path) + rows(path) + SUCCEEDED


def test_a_missing_directory_fails(server, place):
    run = server.run("ls", place / "missing")
    assert (run.status, run.out) == (1, banner("DIR", place / "missing") + failed(1))


def test_a_tree_is_listed_directory_by_directory(server, place):
    (place.files / "sub" / "deep").mkdir(parents=True)
    make_file(place.files / "sub" / "deep" / "leaf", 1)
    out = server.ok("ls", "-R", place.remote)
    assert out == (
        f"DIR: {place.remote} \n".encode() + rows("sub")
        + f"DIR: {place / 'sub'} \n".encode() + rows("deep")
        + f"DIR: {place / 'sub/deep'} \n".encode() + rows("leaf")
        + not_a_directory(place / "sub/deep/leaf") + SUCCEEDED
    )
    assert server.ok("ls", "-S", place.remote) == out


@pytest.mark.parametrize("option", ["-l", *(pytest.param(each, marks=pytest.mark.slow) for each in ("-1", "-R"))])
def test_a_large_directory_lists_every_name_once(server, place, option):
    names = [f"entry-{number:05}" for number in range(10_000)]
    for name in names:
        (place.files / name).touch()
    out = server.ok("ls", option, place.remote)
    listed = re.findall(rb"(?:^|  )(entry-\d{5}) {19}", out, re.MULTILINE)
    assert sorted(listed) == [name.encode() for name in names]


def test_a_local_directory_in_the_long_layout(local, tmp_path):
    folder = tmp_path / "d"
    folder.mkdir()
    status = make_file(folder / "data", 12345).stat()
    ids = [number - 65536 if number > 32767 else number for number in (status.st_uid & 65535, status.st_gid & 65535)]
    expected = f"\n-rw-  1  {ids[0]}  {ids[1]}  {12345:64}  ".encode() + clock(status.st_mtime) + b"  " + padded("data")
    assert local.ok("dir", "-l", folder) == banner("DIR", folder) + expected + SUCCEEDED


def test_one_trailing_slash_is_dropped(local, tmp_path):
    assert local.ok("ls", f"{tmp_path}/") == local.ok("ls", tmp_path)


@pytest.mark.plain  # a sanitizer wants far more address space than any limit here
def test_a_listing_that_does_not_fit_in_memory_fails_with_a_verdict(local, tmp_path):
    folder = tmp_path / "many"
    folder.mkdir()
    for number in range(20_000):
        (folder / f"{number:0200}").touch()
    program, statuses = local.home / "bin" / "tslwnfs", set()
    for limit in range(6_000, 60_000, 2000):  # KiB of address space: from too little to start, to enough
        trace = tmp_path / "trace"
        words = f"{program} -trace {trace} -level 3 3 3 3"
        if local.run("-c", f"ulimit -v {limit}; {words} ls {tmp_path}", program="/bin/sh").status != 0:
            continue
        run = local.run("-c", f"ulimit -v {limit}; exec {words} ls -1 {folder}", program="/bin/sh")
        assert run.err == b"", limit
        assert run.out.endswith(SUCCEEDED if run.status == 0 else failed(run.status)), (limit, run.status)
        assert run.status == 0 or b"memory" in trace.read_bytes(), limit
        statuses.add(run.status)
    assert statuses == {0, 1}
