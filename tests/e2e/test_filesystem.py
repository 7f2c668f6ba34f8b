"""fsinfo, fsstat and stat: figures of a server, attributes of an object, and lines in a format."""

import os
import re

import pytest

from texts import SUCCEEDED, banner, failed, not_a_directory


def test_fsinfo_of_a_remote_directory_prints_limits_and_attributes(server, place):
    out = server.ok("fsinfo", place.remote).decode()
    assert out.startswith(banner("FSINFO", place.remote).decode())
    assert re.search(r"\n \t max\. size of a READ request supported by the server    [1-9]\d*  bytes\n", out)
    assert re.search(r"\n \t The suggested multiple for the size of a READ request  \d+  \n", out)
    assert re.search(r"\n \t The suggested multiple for the size of a WRITE request \d+ \n", out)
    assert re.search(r"\n \t he preferred size of a READDIR request                 [1-9]\d*  bytes\n", out)
    assert f"\n \t uid                               {os.stat(place.files).st_uid}\n" in out
    assert out.endswith("\n \t lookup permission for others      YES" + SUCCEEDED.decode())


def test_fsinfo_of_a_remote_file_is_refused(server, place):
    (place.files / "f").touch()
    done = server.run("fsinfo", place / "f")
    assert (done.status, done.out) == (1, banner("FSINFO", place / "f") + b"not a directory\n" + failed(1))


def test_stat_f_prints_the_seven_figures(server, place):
    out = server.ok("stat", "-f", place.remote).decode()
    body = out[len(banner("FSSTAT", place.remote)) : -len(SUCCEEDED)]
    pattern = (
        "\n \t total size of the file system     NUM  bytes"
        "\n \t free space in the file system     NUM  bytes"
        "\n \t free space available to the user  NUM  bytes"
        "\n \t total file slots in file system   NUM "
        "\n \t free file slots in  file system   NUM "
        "\n \t free file slots available to user NUM "
        "\n \t file system volatility            NUM  sec"
    ).replace("NUM", r"\d+")
    assert re.fullmatch(pattern, body)


def test_fsstat_takes_no_options(server, place):
    assert server.ok("fsstat", "-f", place.remote) == server.ok("fsstat", place.remote)


@pytest.mark.parametrize("form, shown", [("%A %F %s", "rwxr-x--- d"), ("%%|%5|%q|%N%o%", "|||"), ("plain", "plain")])
def test_stat_c_formats_a_remote_directory(server, place, form, shown):
    place.files.chmod(0o750)
    out = server.ok("stat", "-c", form, place.remote)
    assert out.startswith(banner("FSSTAT", place.remote) + shown.encode())
    assert out.endswith(SUCCEEDED)


def test_stat_c_names_path_owner_and_size_of_a_remote_file(server, place):
    (place.files / "f").write_bytes(b"12345")
    out = server.ok("stat", "-c", "%n %u %g %s %F", place / "f")
    assert not_a_directory(place / "f") not in out
    assert out == banner("FSSTAT", place / "f") + f"{place / 'f'} 0 0 5 f".encode() + SUCCEEDED


def test_stat_l_describes_the_target_of_a_link(server, place):
    (place.files / "f").write_bytes(b"123")
    (place.files / "l").symlink_to("f")
    assert server.ok("stat", "-l", "-c", "%F%s", place / "l").endswith(b"f3" + SUCCEEDED)
    assert server.ok("stat", "-c", "%F", place / "l").endswith(b"-" + SUCCEEDED)


def test_the_local_block_has_its_columns_and_the_log_leaves_the_serial_number_out(local, tmp_path):
    (tmp_path / "f").write_bytes(b"x" * 77)
    (tmp_path / "f").chmod(0o640)
    os.utime(tmp_path / "f", (0, 86400))
    out = local.ok("stat", tmp_path / "f").decode()
    status = os.stat(tmp_path / "f")
    assert f"\n \tsize of file:                     {77:>64} bytes\n" in out
    assert f"\n \tserial number of file:            {status.st_ino} \n" in out
    assert "\n \tTime of last access:              Thu Jan  1 00:00:00 1970\n \n" in out
    assert "\n \tTime of last data modification:   Fri Jan  2 00:00:00 1970\n\n" in out
    assert "\n \tfile type:                        Regular file\n" in out
    assert out.endswith(
        "\n \tfile permissions:                 \n \tREAD:                             YES"
        "\n \tWRITE:                            YES\n \tEXEC:                             NO" + SUCCEEDED.decode()
    )
    local.ok("-log", tmp_path / "log", "stat", tmp_path / "f")
    assert b"serial number" not in (tmp_path / "log").read_bytes()
    assert "\n \tfile type:                        Directory\n" in local.ok("fsinfo", tmp_path).decode()


def test_a_local_size_beyond_4_gib_is_shown_whole(local, tmp_path):
    with open(tmp_path / "big", "wb") as big:
        big.truncate(5 << 30)
    assert local.ok("stat", "-c", "%s", tmp_path / "big").endswith(f"{5 << 30:>64}".encode() + SUCCEEDED)


def test_a_circle_of_links_ends(local, tmp_path):
    (tmp_path / "a").symlink_to("b")
    (tmp_path / "b").symlink_to("a")
    assert local.run("stat", "-l", tmp_path / "a").status == 1


@pytest.mark.parametrize("word", ["stat", "fsstat", "fsinfo"])
def test_a_missing_path_fails(local, tmp_path, word):
    done = local.run(word, tmp_path / "none")
    assert (done.status, done.out.endswith(failed(1))) == (1, True)
