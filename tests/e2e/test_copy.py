"""cp: bytes arrive whole in every direction, and the output is the same to the byte."""

import os

import pytest
from client import finish
from files import content, digest, make_file
from texts import SUCCEEDED, banner, copy_banner, exists, failed, not_a_directory

SIZES = [0, 1, 511, 512, 32767, 32768, 32769, 1048575, 1048577, 10_000_000, pytest.param(100_000_000, marks=pytest.mark.slow)]


@pytest.mark.parametrize("size", SIZES)
def test_a_file_goes_up_and_comes_back_identical(server, place, tmp_path, size):
    source = make_file(tmp_path / "source.dat", size)
    back = tmp_path / "back.dat"
    remote = place / "copy.dat"

    assert server.ok("cp", source, remote) == copy_banner(source, remote) + SUCCEEDED
    assert digest(place.files / "copy.dat") == digest(source)
    assert server.ok("cp", remote, back) == copy_banner(remote, back) + not_a_directory(remote) + SUCCEEDED
    assert digest(back) == digest(source)


@pytest.mark.parametrize("size", [0, 1, 32768, 65537, 3_000_001])
def test_a_remote_file_copies_to_a_remote_file(server, place, size):
    make_file(place.files / "one", size)
    source, target = place / "one", place / "two"
    assert server.ok("copy", source, target) == copy_banner(source, target) + not_a_directory(source) + SUCCEEDED
    assert digest(place.files / "two") == digest(place.files / "one")


@pytest.mark.parametrize("size", [0, 1, 32767, 32768, 65300])
def test_a_local_file_copies_to_a_local_file(local, tmp_path, size):
    source, target = make_file(tmp_path / "one", size), tmp_path / "two"
    assert local.ok("cp", source, target) == copy_banner(source, target) + SUCCEEDED
    assert digest(target) == digest(source)


def test_an_existing_longer_file_is_overwritten_in_place_and_cut(server, place, tmp_path):
    make_file(place.files / "there", 70_000)
    source = make_file(tmp_path / "short", 33_000)
    remote = place / "there"
    remark = not_a_directory(remote)
    assert server.ok("cp", source, remote) == (
        remark + copy_banner(source, remote) + remark + exists(remote) + b"will overwrite...\n" + SUCCEEDED
    )
    assert digest(place.files / "there") == digest(source)


def test_the_interactive_option_asks_until_it_is_answered(server, place, tmp_path):
    make_file(place.files / "there", 10)
    source = make_file(tmp_path / "new", 20)
    remote = place / "there"
    remark = not_a_directory(remote)
    question = f"overwrite {remote}? y/n : ".encode()
    head = remark + copy_banner(source, remote) + remark + exists(remote)

    declined = server.run("cp", "-i", source, remote, stdin=b"Y\nmaybe\nno\n")
    assert (declined.status, declined.out) == (1, head + question * 3 + failed(1))
    assert (place.files / "there").read_bytes() == content(10)

    accepted = server.run("cp", "-i", source, remote, stdin=b"yup\n")
    assert (accepted.status, accepted.out) == (0, head + question + b"will overwrite...\n" + SUCCEEDED)
    assert digest(place.files / "there") == digest(source)


@pytest.mark.parametrize("words", [["-i"], ["-i", "-y"]])
def test_a_question_at_the_end_of_the_input_is_a_refusal(server, place, tmp_path, words):
    make_file(place.files / "there", 10)
    source = make_file(tmp_path / "new", 20)
    arguments = ["cp", words[0], source, place / "there", *words[1:]]
    assert server.run(*arguments).status == 1
    assert (place.files / "there").read_bytes() == content(10)


def test_the_destination_name_is_lower_case_and_the_directory_keeps_its_case(server, place, tmp_path):
    (place.files / "Dir").mkdir()
    source = make_file(tmp_path / "F.TXT", 5)
    assert server.ok("cp", source, place / "Dir/X.TXT") == (
        copy_banner(source, place / "Dir/x.txt") + SUCCEEDED
    )
    assert digest(place.files / "Dir" / "x.txt") == digest(source)


def test_a_directory_destination_takes_the_source_under_its_own_name(server, place, tmp_path):
    (place.files / "sub").mkdir()
    source = make_file(tmp_path / "Name.DAT", 1000)
    server.ok("cp", source, place / "sub")
    assert digest(place.files / "sub" / "Name.DAT") == digest(source)


def test_a_wildcard_copies_every_match_with_a_verdict_each(server, place, tmp_path):
    for name in ("a.txt", "b.txt", "c.dat"):
        make_file(place.files / name, len(name) * 100)
    target = tmp_path / "out"
    target.mkdir()
    out = server.ok("cp", place / "*.txt", target)
    assert out.count(SUCCEEDED) == 2
    assert sorted(path.name for path in target.iterdir()) == ["a.txt", "b.txt"]
    assert digest(target / "b.txt") == digest(place.files / "b.txt")


def test_a_missing_source_leaves_the_destination_alone(server, place, tmp_path):
    target = make_file(tmp_path / "kept", 100)
    remote = place / "missing"
    run = server.run("cp", remote, target)
    assert (run.status, run.out) == (1, copy_banner(remote, target) + failed(1))
    assert target.read_bytes() == content(100)


def test_a_directory_is_not_copied_without_the_recursive_option(server, place, tmp_path):
    (place.files / "sub").mkdir()
    run = server.run("cp", place / "sub", tmp_path / "out")
    assert (run.status, run.out) == (1, copy_banner(place / "sub", tmp_path / "out") + failed(1))
    assert not (tmp_path / "out").exists()


def test_a_file_is_not_copied_onto_itself(server, place):
    make_file(place.files / "same", 40_000)
    assert server.run("cp", place / "same", place / "same").status == 1
    assert (place.files / "same").read_bytes() == content(40_000)


def test_a_local_file_is_not_copied_onto_itself(local, tmp_path):
    source = make_file(tmp_path / "same", 40_000)
    assert local.run("cp", source, source).status == 1
    assert source.read_bytes() == content(40_000)


def test_a_read_only_export_is_read_and_stays_as_it_is(server, read_only_place, tmp_path):
    source = make_file(read_only_place.files / "data", 32_767 + 100)
    before = source.stat()
    server.ok("cp", read_only_place / "data", tmp_path / "copy")
    after = source.stat()
    assert digest(tmp_path / "copy") == digest(source)
    assert (after.st_mtime_ns, after.st_ctime_ns) == (before.st_mtime_ns, before.st_ctime_ns)


def test_nothing_is_written_to_a_read_only_export(server, read_only_place, tmp_path):
    source = make_file(tmp_path / "data", 100)
    run = server.run("cp", source, read_only_place / "new")
    assert (run.status, run.out) == (1, copy_banner(source, read_only_place / "new") + failed(1))
    assert list(read_only_place.files.iterdir()) == []


def test_relative_operands_are_taken_from_the_working_directory(server, place, tmp_path):
    source = make_file(tmp_path / "here", 50)
    server.ok("cp", "here", place / "up", cwd=tmp_path)
    server.ok("cp", place / "up", "down", cwd=tmp_path)
    assert digest(tmp_path / "down") == digest(source)


# Around the pieces that a transfer is made of.
STREAMED = [0, 1, 32767, 32768, 32769, 65536, 1_000_000]


@pytest.mark.parametrize("size", STREAMED)
def test_a_pipe_is_copied_until_its_end(server, place, size):
    server.ok("cp", "/dev/stdin", place / "copy", stdin=content(size))
    assert (place.files / "copy").read_bytes() == content(size)


@pytest.mark.parametrize("size", STREAMED)
def test_a_pipe_is_copied_to_a_local_file(local, tmp_path, size):
    local.ok("cp", "/dev/stdin", tmp_path / "copy", stdin=content(size))
    assert (tmp_path / "copy").read_bytes() == content(size)


def test_a_pipe_takes_the_place_of_a_longer_file(server, place):
    make_file(place.files / "copy", 100_000)
    server.ok("cp", "/dev/stdin", place / "copy", stdin=content(40_000))
    assert (place.files / "copy").read_bytes() == content(40_000)


def test_a_file_that_says_it_is_empty_is_copied(server, place):
    server.ok("cp", "/proc/version", place / "version")
    with open("/proc/version", "rb") as version:
        assert (place.files / "version").read_bytes() == version.read()


def test_a_pipe_with_a_name_is_printed(local, tmp_path):
    os.mkfifo(tmp_path / "pipe")
    process = local.start("cat", tmp_path / "pipe")
    (tmp_path / "pipe").write_bytes(content(100_000))
    run = finish(process)
    assert (run.status, run.out) == (0, banner("CAT", tmp_path / "pipe") + content(100_000) + SUCCEEDED)
