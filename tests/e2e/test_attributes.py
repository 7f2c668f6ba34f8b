"""getattr and setattr: the attribute blocks to the byte, the questions and what their answers set."""

import time

import pytest
from files import make_file
from texts import SUCCEEDED, banner, failed, not_a_directory


def clock(seconds):
    return time.asctime(time.gmtime(seconds)) + "\n"


def remote_block(status):
    lines = [
        f"\n \t uid                               {status.st_uid}",
        f"\n \t gid                               {status.st_gid}",
        f"\n \t size                              {status.st_size}",
        f"\n \tTime of last access:               {clock(status.st_atime)} ",
        f"\n \tTime of last data modification:    {clock(status.st_mtime)}",
        f"\n \tTime of last file status change:   {clock(status.st_ctime)} ",
        "\n \t permitted operations:",
    ]
    labels = [
        "Read permission for owner:        ",
        "Write permission for owner:       ",
        "lookup permission for owner:      ",
        "Read permission for group:        ",
        "Write permission for group:       ",
        "lookup permission for group:      ",
        "Read permission for others:       ",
        "Write permission for others:      ",
        "lookup permission for others      ",
    ]
    for bit, label in enumerate(labels):
        lines.append(f"\n \t {label}{'YES' if status.st_mode & (0x100 >> bit) else 'NO'}")
    return "".join(lines).encode()


def signed16(number):
    number &= 0xFFFF
    return number - 0x10000 if number > 0x7FFF else number


def local_block(status):
    yes_no = ["YES" if status.st_mode & bit else "NO" for bit in (0x100, 0x80, 0x40)]
    return "".join(
        [
            f"\n \tsize of file:                     {status.st_size:64} bytes",
            f"\n \tuser id of file owner:            {signed16(status.st_uid)}",
            f"\n \tgroup id of group owner:          {signed16(status.st_gid)}",
            f"\n \tserial number of file:            {status.st_ino}",
            f"\n \tnumber of links for  file:        {status.st_nlink}",
            f"\n \tID of device containing the file: {status.st_rdev}",
            f"\n \tTime of last access:              {clock(status.st_atime)}",
            f"\n \tTime of last data modification:   {clock(status.st_mtime)}",
            f"\n \tTime of last file status change:  {clock(status.st_ctime)}",
            "\n \tfile type:                        directory",
            "\n \tfile permissions:                 ",
            f"\n \tREAD:                             {yes_no[0]}",
            f"\n \tWRITE:                            {yes_no[1]}",
            f"\n \tEXEC:                             {yes_no[2]}",
        ]
    ).encode()


@pytest.mark.parametrize("mode", [0o755, 0o700, 0o541])
def test_the_block_of_a_remote_directory(server, place, mode):
    place.files.chmod(mode)
    out = server.ok("getattr", place.remote)
    assert out == banner("GETATTR", place.remote) + remote_block(place.files.stat()) + SUCCEEDED


def test_the_block_of_a_local_directory(local, tmp_path):
    out = local.ok("getattr", tmp_path)
    assert out == banner("GETATTR", tmp_path) + local_block(tmp_path.stat()) + SUCCEEDED


def test_a_remote_file_has_a_remark_and_no_block(server, place):
    make_file(place.files / "f", 3)
    run = server.run("getattr", place / "f")
    assert (run.status, run.out) == (2, banner("GETATTR", place / "f") + not_a_directory(place / "f") + failed(2))


def test_a_remote_link_has_a_remark_and_no_block(server, place):
    (place.files / "link").symlink_to("nowhere")
    run = server.run("getattr", place / "link")
    expected = banner("GETATTR", place / "link") + not_a_directory(place / "link") + failed(3)
    assert (run.status, run.out) == (3, expected)


@pytest.mark.parametrize("kind, status", [("file", 2), ("link", 3)])
def test_local_files_and_links_have_no_block(local, tmp_path, kind, status):
    path = tmp_path / kind
    if kind == "file":
        make_file(path, 3)
    else:
        path.symlink_to(tmp_path)
    run = local.run("getattr", path)
    assert (run.status, run.out) == (status, banner("GETATTR", path) + failed(status))


REMOTE_QUESTIONS = [
    f"assign {what} permission for {whom} y/n : ".encode()
    for what in ("read", "write", "exec")
    for whom in ("owner", "group", "other")
]


@pytest.mark.parametrize("answers, mode", [("yyynnnyyy", 0o555), ("ynnynnynn", 0o700), ("nnnnnnnnn", 0), ("ynyynnyny", 0o705)])
def test_nine_answers_set_the_permissions_of_a_remote_directory(server, place, answers, mode):
    out = server.ok("setattr", place.remote, stdin="\n".join(answers).encode())
    assert out == banner("SETATTR", place.remote) + b"".join(REMOTE_QUESTIONS) + SUCCEEDED
    assert place.files.stat().st_mode & 0o777 == mode


LOCAL_QUESTIONS = [f"assign {what} permission y/n : ".encode() for what in ("read", "write", "exec")]


def test_three_answers_set_the_permissions_of_a_local_directory(local, tmp_path):
    path = tmp_path / "d"
    path.mkdir(0o777)
    out = local.ok("setattr", path, stdin=b"y\nn\nn\n")
    assert out == banner("SETATTR", path) + b"".join(LOCAL_QUESTIONS) + SUCCEEDED
    assert path.stat().st_mode & 0o7777 == 0o400


def test_an_unclear_answer_repeats_the_question(local, tmp_path):
    path = tmp_path / "d"
    path.mkdir()
    out = local.ok("setattr", path, stdin=b"Y\nyes\nnay\nyup\n")
    read, write, execute = LOCAL_QUESTIONS
    assert out == banner("SETATTR", path) + read * 2 + write + execute + SUCCEEDED
    assert path.stat().st_mode & 0o7777 == 0o500


def test_the_end_of_the_answers_changes_nothing(server, place):
    place.files.chmod(0o750)
    assert server.run("setattr", place.remote, stdin=b"y\ny\n").status == 1
    assert place.files.stat().st_mode & 0o777 == 0o750


def test_permissions_of_a_file_are_refused(server, place):
    make_file(place.files / "f", 1)
    run = server.run("setattr", place / "f", stdin=b"y\n" * 9)
    assert (run.status, run.out) == (1, banner("SETATTR", place / "f") + not_a_directory(place / "f") + failed(1))
