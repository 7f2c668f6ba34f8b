"""Recursive copies of whole trees, both ways."""

from files import make_file, make_tree, tree_of
from texts import SUCCEEDED, UNUSABLE, copy_banner, failed


def test_a_tree_of_a_thousand_files_goes_up_and_comes_back(server, place, tmp_path):
    source = make_tree(tmp_path / "tree", directories=20, files_each=50)
    server.ok("cp", "-r", source, place / "tree")
    assert tree_of(place.files / "tree") == tree_of(source)

    server.ok("cp", "-r", place / "tree", tmp_path / "back")
    assert tree_of(tmp_path / "back") == tree_of(source)


def test_the_contents_of_the_source_go_into_the_destination(server, place, tmp_path):
    source = make_tree(tmp_path / "tree", directories=1, files_each=1)
    (place.files / "there").mkdir()
    server.ok("cp", "-r", source, place / "there")
    assert tree_of(place.files / "there") == tree_of(source)


def test_a_name_with_capitals_is_reported_and_left_out(server, place, tmp_path):
    source = tmp_path / "tree"
    source.mkdir()
    make_file(source / "kept", 10)
    make_file(source / "Missed", 10)
    run = server.run("cp", "-r", source, place / "tree")
    assert run.status == 0
    inner = copy_banner(source / "missed", place / "tree/missed") + failed(1)
    assert inner in run.out
    assert run.out.endswith(SUCCEEDED)
    assert list(tree_of(place.files / "tree")) == ["kept"]


def test_an_empty_directory_copies_with_a_note_that_nothing_was_processed(local, tmp_path):
    source, target = tmp_path / "empty", tmp_path / "out"
    source.mkdir()
    out = local.ok("cp", "-r", source, target)
    assert out == copy_banner(source, target) + UNUSABLE + SUCCEEDED
    assert list(target.iterdir()) == []


def test_a_directory_is_not_copied_into_itself(local, tmp_path):
    source = make_tree(tmp_path / "tree", directories=2, files_each=2)
    before = tree_of(source)
    assert local.run("cp", "-r", source, source / "inner").status == 1
    assert tree_of(source) == before
