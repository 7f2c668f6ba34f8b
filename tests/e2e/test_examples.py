"""The example programs, built against an installed home as their readers would build them, and run."""

import pathlib
import re
import shutil
import subprocess

import client
import pytest
import servers

pytestmark = pytest.mark.plain

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"


def needed(file):
    shown = subprocess.run(["readelf", "--dynamic", "--wide", file], check=True, capture_output=True, text=True).stdout
    return re.findall(r"\(NEEDED\).*\[(.*)\]", shown)


def with_pkg_config(home, build):
    shutil.copytree(EXAMPLES, build)
    settings = [f"PKG_CONFIG_PATH={home}/lib/pkgconfig", "CFLAGS=-Wall -Wextra -Werror"]
    return [["env", *settings, "make", "-C", build]]


def with_cmake(home, build):
    configure = ["cmake", "-G", "Ninja", "-S", EXAMPLES, "-B", build, f"-DCMAKE_PREFIX_PATH={home}"]
    return [configure, ["cmake", "--build", build]]


@pytest.fixture(scope="module", params=[with_pkg_config, with_cmake])
def program(request, installed_home, tmp_path_factory):
    """One of the programs, built in one way and again in the other. The home was moved: nothing remembers where it was made."""
    place = tmp_path_factory.mktemp("example")
    home = client.copy_of_home(installed_home, place / "home")
    for command in request.param(home, place / "build"):
        done = subprocess.run(command, capture_output=True, text=True, check=False)
        assert done.returncode == 0, done.stdout + done.stderr
    return client.Client(home), place / "build" / "list"


@pytest.fixture
def mounted(program, tmp_path):
    """The program, and a folder that is served under /mnt/example."""
    caller, name = program
    folder = tmp_path / "served"
    folder.mkdir()
    server = servers.LoopnfsdProcess(caller.home, folder)
    caller.tslnfstab.write_text(servers.server_block("loop", server.address, [("/export", "/mnt/example")]))
    yield caller, name, folder
    server.close()


def test_every_name_of_a_directory_is_listed(mounted):
    caller, name, folder = mounted
    names = [f"file-{number}" for number in range(200)]
    for each in names:
        (folder / each).touch()
    listed = caller.ok("/mnt/example", program=name).decode().splitlines()
    assert listed[:2] == [".", ".."]
    assert sorted(listed[2:]) == sorted(names)


def test_a_failure_is_told_with_its_status(mounted):
    caller, name, _ = mounted
    run = caller.run("/mnt/example/none", program=name)
    assert (run.status, run.out, run.err) == (1, b"", b"/mnt/example/none: failed with status 2\n")


def test_a_path_on_no_mount_is_refused(mounted):
    caller, name, folder = mounted
    assert caller.run(folder, program=name).err == f"{folder}: on no mount\n".encode()


def test_a_program_that_loads_the_enabled_library_reads_a_file(mounted):
    """The library that a database loads: the copy that wnfsenable makes."""
    caller, name, folder = mounted
    content = bytes(range(256)) * 517
    (folder / "file").write_bytes(content)
    configuration = caller.tslnfstab.read_text()
    caller.run("wnfsenable", "-y")
    caller.tslnfstab.write_text(configuration)
    read, library = name.parent / "read", caller.home / "rdbms/lib/tdm/libnfstdm.so"
    assert caller.ok(library, "/mnt/example/file", program=read) == content
    run = caller.run(library, "/mnt/example/none", program=read)
    assert (run.status, run.out) == (1, b"")
    assert run.err.startswith(b"/mnt/example/none: failed with status 2 ")


def test_programs_ask_for_the_version_of_the_interface_and_the_utility_for_the_library_by_its_name(program):
    """So another library of the interface can take its place, and none of another interface starts a program."""
    caller, name = program
    version = re.search(r"TDM_INTERFACE_VERSION = (\d+)", (caller.home / "include/tdm.h").read_text())[1]
    assert f"libnfstdm.so.{version}" in needed(name)
    assert "libnfstdm.so" in needed(caller.home / "bin/tslwnfs")
    assert (caller.home / f"lib/libnfstdm.so.{version}").samefile(caller.home / "lib/libnfstdm.so")
    assert f"libnfstdm.so.{version}\n" in (caller.home / "share/man/man3/tdm.3").read_text()
