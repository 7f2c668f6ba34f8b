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


@pytest.fixture(scope="session")
def packages():
    folder = os.environ.get("TSLWNFS_PACKAGES")
    if not folder:
        pytest.fail("TSLWNFS_PACKAGES must name the folder of the packages (scripts/check package makes them)")
    return pathlib.Path(folder)


def only(folder, pattern):
    found = list(folder.glob(pattern))
    if not found:
        pytest.skip(f"there is no {pattern} in {folder}")
    assert len(found) == 1, found
    return found[0]


@pytest.fixture(scope="session")
def deb(packages):
    return only(packages, "*.deb")


@pytest.fixture(scope="session")
def next_deb(packages):
    return only(packages / "next", "*.deb")


@pytest.fixture(scope="session")
def rpm(packages):
    return only(packages, "*.rpm")


@pytest.fixture(scope="session")
def next_rpm(packages):
    return only(packages / "next", "*.rpm")


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
def serve(machine):
    """Starts the package's server and describes it with the package's command."""
    running = []

    def start():
        running.append(LoopbackServer(machine))
        pair = f"127.0.0.1,{running[-1].address}"
        machine.run("tslwnfs", "createtslnfstab", "-s", "loop", "-lp", pair, "-em", "/export,/mnt/wnfs")

    yield start
    for server in running:
        server.close()


@pytest.fixture
def tree():
    return TREE
