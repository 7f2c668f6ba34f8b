"""Fixtures of the end-to-end tests: an installed home, and the servers that its program talks to.

TSLWNFS_HOME names the home under test (scripts/check installs one); TSLWNFS_BUILD the build tree it came from.
"""

import os
import pathlib
import random
import re
import shutil

import pytest

import client
import relay
import servers


def pytest_addoption(parser):
    parser.addoption("--servers", help="run against these servers only")


def pytest_configure(config):
    config.addinivalue_line("markers", "slow: over five seconds, or a hundred repetitions (whole runs, no sanitizers)")
    config.addinivalue_line("markers", "kinds(names): is about these kinds of servers")
    config.addinivalue_line("markers", "plain: links the library to a program that has no sanitizer's runtime")


def pytest_generate_tests(metafunc):
    if "server" in metafunc.fixturenames:
        # The names of the table themselves: pytest keeps a server running for the tests that name the same object.
        named = metafunc.config.getoption("servers")
        wanted = named.split(",") if named else servers.KINDS
        about = metafunc.definition.get_closest_marker("kinds")
        usual = servers.USUAL + servers.ON_REQUEST if named else servers.USUAL
        meant = about.args if about else usual
        params = [name for name in servers.KINDS if name in wanted and name in meant]
        metafunc.parametrize("server", params, indirect=True, scope="session")


@pytest.fixture
def removed_if_passed(request):
    """Removes directories when their test has passed, mostly before what it wrote has come to a disk."""
    before = request.session.testsfailed
    directories = []
    yield directories.append
    if request.session.testsfailed == before:
        for directory in directories:
            shutil.rmtree(directory, ignore_errors=True)


@pytest.fixture
def tmp_path(tmp_path, removed_if_passed):
    removed_if_passed(tmp_path)
    return tmp_path


@pytest.fixture(scope="session")
def installed_home():
    """The home under test. Tests do not write into it."""
    home = os.environ.get("TSLWNFS_HOME")
    if not home:
        pytest.fail("TSLWNFS_HOME must name an installed home (scripts/check e2e makes one)")
    return pathlib.Path(home).resolve()


@pytest.fixture(scope="session")
def local(installed_home, tmp_path_factory):
    """A client without a tslnfstab: every path is a local one."""
    return client.Client(client.copy_of_home(installed_home, tmp_path_factory.mktemp("local") / "home"))


@pytest.fixture
def own(installed_home, tmp_path):
    """A client with a home of the test's own, to configure and to damage."""
    return client.Client(client.copy_of_home(installed_home, tmp_path / "home"))


@pytest.fixture(scope="session")
def server(request, installed_home, tmp_path_factory):
    """A running server of each kind, one a session, with the client configured for it."""
    kind = servers.KINDS[request.param]
    why = getattr(kind, "why_impossible", lambda: None)()
    if why:
        pytest.skip(f"{kind.name}: {why}")
    base = tmp_path_factory.mktemp(kind.name)
    running = kind(client.copy_of_home(installed_home, base / "home"), base / "exports")
    yield running
    running.close()


class Place:
    """A directory on the server: `remote` is its path for the program, `files` where its files really are."""

    def __init__(self, mount, folder, name):
        self.remote = f"{mount}/{name}"
        self.files = folder / name
        self.files.mkdir()

    def __truediv__(self, name):
        return f"{self.remote}/{name}"


def place_name(request, seen={}):  # noqa: B006  (one count for the whole run)
    """Short, lower-case and never the same twice: names that the program builds are in lower case."""
    stem = re.sub(r"[^a-z0-9]+", "-", request.node.name.lower())[:24].strip("-")
    seen[stem] = seen.get(stem, 0) + 1
    return f"{stem}-{seen[stem]}"


@pytest.fixture
def place(server, request, removed_if_passed):
    """A writable directory of the test's own on the server."""
    made = Place(servers.READ_WRITE, server.writable, place_name(request))
    removed_if_passed(made.files)
    return made


@pytest.fixture
def read_only_place(server, request):
    return Place(servers.READ_ONLY, server.read_only, place_name(request))


@pytest.fixture(scope="session")
def build_tree():
    """The build tree of the home under test, or a skip."""
    tree = os.environ.get("TSLWNFS_BUILD")
    if not tree:
        pytest.skip("TSLWNFS_BUILD does not name the build tree")
    return pathlib.Path(tree)


@pytest.fixture
def chance(request):
    """Random numbers that come back: a failed test shows the seed, and TSLWNFS_SEED sets it."""
    seed = int(os.environ.get("TSLWNFS_SEED") or random.SystemRandom().randrange(1 << 32))
    print(f"TSLWNFS_SEED={seed}")
    return random.Random(seed)


class Relayed:
    """A client of the server that reaches it through a relay only, and the relay."""

    def __init__(self, server, home):
        self.client = client.Client(home, server.client.enter)
        self.relay = relay.Relay(server.nfs_port(), self.client.enter)
        self.client.tslnfstab.write_text(server.block_through(self.relay.port))


@pytest.fixture
def relayed(server, installed_home, tmp_path):
    line = Relayed(server, client.copy_of_home(installed_home, tmp_path / "home"))
    yield line
    line.relay.close()


@pytest.fixture
def faulty(installed_home, tmp_path):
    """Makes servers of the test's own that misbehave on command: options of loopnfsd, settings of tslnfstab."""
    home = client.copy_of_home(installed_home, tmp_path / "home")
    made = []

    def make(*words, **settings):
        made.append(servers.FaultyServer(home, tmp_path, *words, **settings))
        return made[-1]

    yield make
    for each in made:
        each.close()
