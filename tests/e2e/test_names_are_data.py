"""Names out of listings: whoever may create a file chooses its name, and no name leads anywhere but to its own entry."""

import os

import pytest

ODD = ["x..\\y", "..\\z", "a\\b", "star*", "mark?", "-r", "colon:", "nfs:", "blank name"]

# What a thread of a program that embeds this may have; the shell's own limit is eight times that.
STACK_KIB = 1024
PRLIMIT = "/usr/bin/prlimit"


def grow(folder):
    """A tree of odd names, three levels deep. Gives its files."""
    for name in ODD:
        (folder / name).mkdir(parents=True)
        for below in ODD:
            (folder / name / below).write_text(name + below)
    return content(folder)


def content(folder):
    return {str(path.relative_to(folder)): path.read_text() for path in folder.rglob("*") if path.is_file()}


def test_a_remote_tree_is_deleted_and_nothing_beside_it(server, place):
    grow(place.files / "d")
    (place.files / "kept").write_text("kept")
    server.ok("rm", "-r", place / "d")
    assert os.listdir(place.files) == ["kept"]


def test_a_local_tree_is_deleted_and_nothing_beside_it(local, tmp_path):
    grow(tmp_path / "t" / "d")
    (tmp_path / "t" / "kept").write_text("kept")
    local.ok("rm", "-r", tmp_path / "t" / "d")
    assert os.listdir(tmp_path / "t") == ["kept"]


def test_a_tree_comes_back_as_it_went(server, place, tmp_path):
    grown = grow(tmp_path / "sent")
    server.ok("cp", "-r", tmp_path / "sent", place / "kept")
    assert content(place.files / "kept") == grown
    server.ok("cp", "-r", place / "kept", tmp_path / "back")
    assert content(tmp_path / "back") == grown


def test_find_and_ls_stay_in_the_tree(server, place):
    grow(place.files / "d")
    found = server.ok("find", place / "d", "-type", "f").splitlines()
    expected = {place / f"d/{name}" for name in content(place.files / "d")}
    assert {line.rsplit(b"not a directory", 1)[-1][:-1].decode() for line in found if line.endswith(b" ")} == expected
    listed = server.ok("ls", "-lR", place / "d")
    assert listed.count(b"DIR: ") == 1 + len(ODD)


def test_an_odd_name_moves_by_a_wildcard(server, place, tmp_path):
    (place.files / "from").mkdir()
    for name in ODD:
        (place.files / "from" / name).write_text(name)
    (tmp_path / "to").mkdir()
    server.ok("mv", place / "from/*", tmp_path / "to")
    assert os.listdir(place.files / "from") == []
    assert content(tmp_path / "to") == {name: name for name in ODD}


def test_a_terminal_is_told_of_a_directory_that_is_too_deep_to_copy(local, tmp_path):
    deepest = tmp_path / "d"
    while len(str(deepest)) < 300:
        deepest = deepest / ("e" * 30)
    deepest.mkdir(parents=True)
    run = local.run("cp", "-r", tmp_path / "d", tmp_path / "c", env={"TSLWNFS_TERMINAL": "reasons"})
    assert b": paths of 260 characters and more are not taken\n" in run.err
    assert run.status == 0
    run = local.run("cp", "-r", tmp_path / "d", tmp_path / "c", env={"TSLWNFS_STRICT": "status"}, stdin=b"y\n")
    assert run.status == 4


# The sanitizers' frames are several times as large.
@pytest.mark.skipif("ASAN_OPTIONS" in os.environ, reason="sanitizers take stack of their own")
def test_a_chain_of_links_without_end_fits_a_small_stack(local, tmp_path):
    for i in range(1200):
        (tmp_path / f"d{i}").mkdir()
        (tmp_path / f"d{i}" / "next").symlink_to(f"../d{i + 1}")
    (tmp_path / "d1000" / "found").touch()
    limited = [f"--stack={STACK_KIB * 1024}", local.home / "bin" / "tslwnfs"]
    done = local.run(*limited, "find", tmp_path / "d0", "-follow", program=PRLIMIT)
    assert f"{tmp_path}/d1000/found \n".encode() in done.out


# A command, and the levels that it reaches: operands shorter than 260 characters, paths of 512, and a listing's 50.
DEEP = [(["ls", "-R"], 50), (["find", "-maxdepth", "-1"], 200), (["cp", "-r"], 80), (["rm", "-r"], 80)]


@pytest.mark.parametrize("words, levels", DEEP)
def test_a_tree_as_deep_as_paths_can_be_fits_a_small_stack(server, place, tmp_path, words, levels):
    deepest = place.files
    while len(place.remote) + len(str(deepest)) - len(str(place.files)) < 520:
        deepest = deepest / "d"
        deepest.mkdir()
    words = [words[0], place / "d", *words[1:]] if words[0] == "find" else [*words, place / "d"]
    limited = [f"--stack={STACK_KIB * 1024}", server.client.home / "bin" / "tslwnfs"]
    done = server.client.run(*limited, *words, *([tmp_path / "copy"] if words[0] == "cp" else []), program=PRLIMIT)
    assert done.out.count(b"/d/d/d") >= levels, done
