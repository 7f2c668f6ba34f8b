"""The Debian packages as files: what is in them, and what they say of it."""

import gzip
import re
import shutil
import subprocess

import machine_code
import pytest


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def field(deb, name):
    return output_of("dpkg-deb", "--field", deb, name).strip()


@pytest.fixture(scope="module")
def unpacked(debs, tmp_path_factory):
    """The folder into which each package was unpacked."""
    folders = {name: tmp_path_factory.mktemp(name) for name in debs}
    for name, folder in folders.items():
        subprocess.run(["dpkg-deb", "--extract", debs[name], folder], check=True)
    return folders


def files_of(folder):
    return {str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_symlink() or not path.is_dir()}


def test_they_depend_on_the_c_library_and_each_other_alone(debs):
    same = rf"\(= {re.escape(field(debs['tslwnfs'], 'Version'))}\)"
    wanted = {
        "tslwnfs": r"passwd, libc6 \(>= [0-9.]+\)",  # the former for its group
        "tslwnfs-dev": rf"tslwnfs {same}",
        "tslwnfs-loopnfsd": r"libc6 \(>= [0-9.]+\)",
        "tslwnfs-dbgsym": rf"tslwnfs {same} \| tslwnfs-loopnfsd {same}",
    }
    for name, dependencies in wanted.items():
        assert re.fullmatch(dependencies, field(debs[name], "Depends")), name


def test_everybody_may_read_all_of_them(debs):
    for deb in debs.values():
        modes = {line.split()[0] for line in output_of("dpkg-deb", "--contents", deb).splitlines()}
        assert modes <= {"drwxr-xr-x", "-rwxr-xr-x", "-rw-r--r--", "lrwxrwxrwx"}


def test_lintian_finds_nothing(debs):
    if not shutil.which("lintian"):
        pytest.skip("lintian is not installed")
    words = ["lintian", "--allow-root", "--fail-on", "error,warning"]
    done = subprocess.run([*words, *debs.values()], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout


@pytest.mark.parametrize("name", ["tslwnfs", "tslwnfs-loopnfsd", "tslwnfs-dbgsym"])
def test_their_changelogs_say_which_version_it_is_who_made_it_and_when(debs, unpacked, name):
    version, maintainer = field(debs[name], "Version"), field(debs[name], "Maintainer")
    documents = unpacked[name] / "usr/share/doc" / name
    lines = gzip.decompress((documents / "changelog.Debian.gz").read_bytes()).decode().splitlines()
    assert lines[0].startswith(f"tslwnfs ({version}) ")
    assert re.fullmatch(rf" -- {maintainer}  \w{{3}}, \d\d \w{{3}} \d{{4}} \d\d:\d\d:\d\d \+0000", lines[-1])
    assert (documents / "copyright").stat().st_size > 0


def test_the_list_of_changes_begins_with_the_version(debs, unpacked):
    text = gzip.decompress((unpacked["tslwnfs"] / "usr/share/doc/tslwnfs/changelog.gz").read_bytes()).decode()
    headings = re.findall(r"^## (.*)$", text, re.MULTILINE)
    assert re.fullmatch(rf"{field(debs['tslwnfs'], 'Version').split('-')[0]} - \d{{4}}-\d\d-\d\d", headings[0])


def test_what_there_is_to_read_comes_with_the_utility(unpacked, tree):
    """With the folders beside the README that its links lead to."""
    folders = [path for name in ("docs", "examples") for path in (tree / name).glob("*.*")]
    names = ["README.md", *(str(path.relative_to(tree)) for path in folders)]
    assert len(names) > 6
    assert {f"usr/share/doc/tslwnfs/{name}" for name in names} <= files_of(unpacked["tslwnfs"])


def test_every_file_is_in_one_package(unpacked):
    seen = {}
    for name, folder in unpacked.items():
        for file in files_of(folder):
            assert seen.setdefault(file, name) == name, file


def test_together_they_hold_what_an_installation_of_ones_own_does(unpacked):
    held = set().union(*map(files_of, unpacked.values()))
    for name in ("bin/tslwnfs", "bin/loopnfsd", "lib/libnfstdm.so", "include/tdm.h", "lib/pkgconfig/tdm.pc"):
        assert f"opt/tessel/wnfs/{name}" in held


def test_nothing_in_them_names_a_folder_of_the_machine_that_built_them(unpacked, tree, packages):
    places = {str(tree).encode(), str(packages.resolve()).encode()}
    for folder in unpacked.values():
        for path in folder.rglob("*"):
            if path.is_file() and not path.is_symlink():
                assert not [place for place in places if place in path.read_bytes()], path


def test_their_programs_are_hardened_and_search_for_libraries_in_the_home_alone(unpacked):
    programs = [each for name in ("tslwnfs", "tslwnfs-loopnfsd") for each in machine_code.files_in(unpacked[name])]
    assert {"tslwnfs", "loopnfsd", "libnfstdm.so"} <= {each.name for each in programs}
    for each in programs:
        assert machine_code.is_hardened(each), each
        assert machine_code.search_paths(each) == (["$ORIGIN/../lib"] if each.name == "tslwnfs" else []), each


def test_programs_of_other_packages_learn_what_to_depend_on(debs, unpacked):
    """By the name with which they are linked."""
    shlibs = output_of("dpkg-deb", "--info", debs["tslwnfs"], "shlibs")
    number = re.fullmatch(r"libnfstdm (\d+) tslwnfs \(>= [0-9.]+\)\n", shlibs)[1]
    library = unpacked["tslwnfs"] / "opt/tessel/wnfs/lib/libnfstdm.so"
    assert f"soname: [libnfstdm.so.{number}]" in machine_code.shown("--dynamic", library)
    assert (library.parent / f"libnfstdm.so.{number}").samefile(library)
