"""find: the same names as findutils finds, on a mount and locally, and commands that run for its matches."""

import os
import subprocess

import pytest
from amounts import few_and_many
from files import grow_tree
from texts import SUCCEEDED, UNUSABLE, failed

NOTHING = failed(4) + UNUSABLE

# Our options, and those that make findutils give the same.
TESTS = [
    ((), ()),
    (("-name", "X*"), ("-iname", "x*")),
    (("-maxdepth", "2"), ("-maxdepth", "2")),
    (("-type", "d"), ("-type", "d")),
    (("-type", "f", "-size", "+1k"), ("-type", "f", "-size", "+1023c")),
    (("-type", "f", "-size", "-100"), ("-type", "f", "-size", "-101c")),
    (("-type", "f", "-size", "2850"), ("-type", "f", "-size", "2850c")),
    (("-path", "*/D3/*1"), ("-ipath", "*/d3/*1")),
]


def matches(out):
    """The match lines of a find, whatever remarks on non-directories precede them on their lines."""
    lines = [line.rsplit(b"not a directory", 1)[-1] for line in out.splitlines()]
    return sorted(line[:-1].decode() for line in lines if line.startswith(b"/") and line.endswith(b" "))


def findutils(folder, *tests):
    found = subprocess.run(["find", folder, "-mindepth", "1", *tests], capture_output=True, check=True)
    return sorted(found.stdout.decode().splitlines())


@pytest.fixture(scope="session")
def tree(tmp_path_factory):
    folder = tmp_path_factory.mktemp("tree")
    assert grow_tree(folder) >= 9900
    return folder


@pytest.mark.parametrize("ours, theirs", TESTS)
def test_a_local_tree_gives_what_findutils_gives(local, tree, ours, theirs):
    done = local.run("find", tree, *ours)
    assert done.status == 0
    assert matches(done.out) == findutils(tree, *theirs)


@few_and_many("branches", (3, 19), range(20))
def test_a_remote_tree_gives_what_findutils_gives(server, place, branches):
    grow_tree(place.files, branches)
    for ours, theirs in TESTS:
        remote = [place.remote + name[len(str(place.files)) :] for name in findutils(place.files, *theirs)]
        assert matches(server.ok("find", place.remote, *ours)) == remote


def test_a_match_line_has_a_blank_before_its_end_and_goes_to_standard_output_with_a_log(local, tmp_path):
    (tmp_path / "d").mkdir()
    (tmp_path / "d" / "A").touch()
    done = local.run("-log", tmp_path / "log", "find", tmp_path / "d")
    assert done.out == f"{tmp_path}/d/A \n".encode()
    assert (tmp_path / "log").read_bytes() == f"FIND PATH:{tmp_path}/d FILE:* :\n".encode() + SUCCEEDED


@pytest.mark.parametrize("options", [(), ("-name", "zzz"), ("-type", "l"), ("-type", "file", "-size", "+1")])
def test_nothing_matched_is_status_4(local, tmp_path, options):
    (tmp_path / "empty").mkdir()
    done = local.run("find", tmp_path / "empty", *options)
    assert done.status == 4
    assert done.out.endswith(NOTHING)


def test_a_depth_of_0_fails(local, tmp_path):
    done = local.run("find", tmp_path, "-maxdepth", "0")
    assert (done.status, done.out.endswith(failed(1))) == (1, True)


def test_exec_runs_a_command_per_match_and_prints_no_paths(local, tmp_path):
    (tmp_path / "d").mkdir()
    (tmp_path / "d" / "one").touch()
    done = local.run("find", tmp_path / "d", "-exec", "echo", "found", "{}")
    assert done.out == f"FIND PATH:{tmp_path}/d FILE:* :\nfound {tmp_path}/d/one\n".encode() + SUCCEEDED
    both = local.run("find", tmp_path / "d", "-print", "-exec", "echo", "{}")
    assert both.out.splitlines()[1:3] == [f"{tmp_path}/d/one ".encode(), f"{tmp_path}/d/one".encode()]


def test_exec_sees_a_name_with_shell_characters_as_one_word(local, tmp_path):
    (tmp_path / "d").mkdir()
    name = "x;touch it's gone $(touch evil) `touch evil`"
    (tmp_path / "d" / name).touch()
    done = local.run("find", tmp_path / "d", "-exec", "stat", "-c", "%s:%n", "{}", cwd=tmp_path)
    assert f"0:{tmp_path}/d/{name}\n".encode() in done.out
    assert os.listdir(tmp_path / "d") == [name]
    assert not (tmp_path / "evil").exists()


def test_follow_walks_a_links_target_but_reports_neither_link_nor_file(local, tmp_path):
    (tmp_path / "d").mkdir()
    (tmp_path / "other").mkdir()
    (tmp_path / "other" / "inner").touch()
    (tmp_path / "d" / "link").symlink_to("../other")
    (tmp_path / "d" / "file").symlink_to("../other/inner")
    assert matches(local.run("find", tmp_path / "d", "-follow", "-print").out) == [f"{tmp_path}/other/inner"]
    assert matches(local.run("find", tmp_path / "d").out) == [f"{tmp_path}/d/file", f"{tmp_path}/d/link"]


def test_links_that_lead_back_end(local, tmp_path):
    (tmp_path / "d" / "sub").mkdir(parents=True)
    (tmp_path / "d" / "sub" / "back").symlink_to("..")
    trace = tmp_path / "trace"
    done = local.run("-trace", trace, "-level", "0", "0", "0", "3", "find", tmp_path / "d", "-follow")
    assert done.status == 0
    assert b"leads back to" in trace.read_bytes()


def test_a_chain_of_a_thousand_links_is_followed_to_its_end(local, tmp_path):
    for i in range(1000):
        (tmp_path / f"d{i}").mkdir()
        (tmp_path / f"d{i}" / "next").symlink_to(f"../d{i + 1}")
    (tmp_path / "d1000").mkdir()
    (tmp_path / "d1000" / "end").touch()
    assert matches(local.run("find", tmp_path / "d0", "-follow").out) == [f"{tmp_path}/d1000/end"]
