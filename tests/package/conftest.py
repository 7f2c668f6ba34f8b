"""Fixtures of the package tests. TSLWNFS_PACKAGES names the folder of the packages under test, which holds in "next" the
same ones with a higher release (scripts/check package makes both)."""

import os
import pathlib
import re
import subprocess
import sys

import pytest

TREE = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(TREE / "tests" / "e2e"))

import machine as machines  # noqa: E402
import namespace  # noqa: E402

DEBS = ("tslwnfs", "tslwnfs-dev", "tslwnfs-loopnfsd", "tslwnfs-dbgsym")
RPMS = ("tslwnfs", "tslwnfs-devel", "tslwnfs-loopnfsd", "tslwnfs-debuginfo")


@pytest.fixture(scope="session")
def packages():
    folder = os.environ.get("TSLWNFS_PACKAGES")
    if not folder:
        pytest.fail("TSLWNFS_PACKAGES must name the folder of the packages (scripts/check package makes them)")
    return pathlib.Path(folder)


def all_of(folder, names, pattern):
    """The files of the packages, by their names. Nothing else may be there."""
    files = {file.name for file in folder.glob(f"*{pattern[-4:]}")}
    if not files:
        pytest.skip(f"there is no *{pattern[-4:]} in {folder}")
    found = {name: list(folder.glob(pattern.format(name))) for name in names}
    assert {name: len(each) for name, each in found.items()} == dict.fromkeys(names, 1)
    assert files == {each[0].name for each in found.values()}
    return {name: each[0] for name, each in found.items()}


@pytest.fixture(scope="session")
def debs(packages):
    return all_of(packages, DEBS, "{}_*.deb")


@pytest.fixture(scope="session")
def next_debs(packages):
    return all_of(packages / "next", DEBS, "{}_*.deb")


@pytest.fixture(scope="session")
def rpms(packages):
    return all_of(packages, RPMS, "{}-[0-9]*.rpm")


@pytest.fixture(scope="session")
def next_rpms(packages):
    return all_of(packages / "next", RPMS, "{}-[0-9]*.rpm")


@pytest.fixture(scope="session")
def machines_are_possible(tmp_path_factory):
    why = machines.why_impossible(tmp_path_factory.mktemp("trial"))
    if why:
        pytest.skip(why)


@pytest.fixture
def machine(machines_are_possible, tmp_path):
    made = machines.Machine(tmp_path)
    yield made
    made.close()


class LoopbackServer:
    """The package's loopnfsd on a free port of the machine."""

    def __init__(self, machine):
        machine.path("/tmp/served").mkdir()
        machine.path("/tmp/served").chmod(0o777)
        self.process = subprocess.Popen(
            [*machine.enter(), "loopnfsd", "/tmp/served"],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            text=True,
            preexec_fn=namespace.die_with_parent,
        )
        self.address = re.search(r"127\.0\.0\.1:\d+", self.process.stdout.readline())[0]

    def close(self):
        namespace.stop(self.process)
        self.process.stdout.close()


@pytest.fixture
def start_server(machine):
    """Starts the package's server; gives its address."""
    running = []

    def start():
        running.append(LoopbackServer(machine))
        return running[-1].address

    yield start
    for server in running:
        server.close()


@pytest.fixture
def serve(machine, start_server):
    """Starts the package's server and describes it with the package's command."""

    def start():
        pair = f"127.0.0.1,{start_server()}"
        machine.run("tslwnfs", "createtslnfstab", "-s", "loop", "-lp", pair, "-em", "/export,/mnt/wnfs")

    return start


@pytest.fixture
def tree():
    return TREE
