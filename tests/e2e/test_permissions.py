"""What a person reads whom the system refuses something: who may do it."""

import os
import pathlib
import pwd
import tempfile

import pytest

from client import Client, copy_of_home
from terminal import Terminal

NOBODY = 65534
AS_NOBODY = ["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}", "--clear-groups"] if os.geteuid() == 0 else []


@pytest.fixture
def refused(installed_home):
    """A client that may change nothing, in a home that everybody may look at, and the place where that is."""
    with tempfile.TemporaryDirectory(dir="/tmp") as place:  # TMPDIR may be closed to others
        os.chmod(place, 0o755)
        home = copy_of_home(installed_home, pathlib.Path(place) / "home")
        (home / "dbs" / "tslnfstab").write_text("")
        yield Client(home, AS_NOBODY), pathlib.Path(place)
        for path in (home / "dbs", place):
            os.chmod(path, 0o755)


def close(home, directory, file):
    os.chmod(home / "dbs" / "tslnfstab", file)
    os.chmod(home / "dbs", directory)


def said(client, words):
    shown = Terminal(client).run(*words)
    assert shown.status != 0
    return shown.said[0]


def user():
    return pwd.getpwuid(os.geteuid()).pw_name


def group(client):
    return client.tslnfstab.group()


CHANGES = [
    ["createtslnfstab", "-s", "a", "-em", "/e,/m"],
    ["mount", "/e", "/m"],
    ["umount", "/m"],
    ["save"],
    ["delete_server", "-s", "a"],
]


@pytest.mark.skipif(not AS_NOBODY, reason="the owner of the home is refused nothing that a group may do")
@pytest.mark.parametrize("words", CHANGES, ids=lambda words: words[0])
def test_of_the_configuration_it_is_told_which_group_may_change_it(refused, words):
    client, _ = refused
    close(client.home, 0o775, 0o664)
    line = said(client, words)
    assert f"{client.tslnfstab}" in line and "Permission denied" in line
    assert line.endswith(f"; user {user()} and the members of group {group(client)} may change the configuration")


@pytest.mark.parametrize("words", CHANGES, ids=lambda words: words[0])
def test_of_a_configuration_without_a_group_it_is_told_that_its_user_alone_may(refused, words):
    client, _ = refused
    close(client.home, 0o555, 0o444)
    assert said(client, words).endswith(f"Permission denied; user {user()} alone may change the configuration")


def test_who_may_read_the_configuration_is_told_to_whom_may_not(refused):
    client, _ = refused
    close(client.home, 0o755, 0o200 if not AS_NOBODY else 0o600)
    assert said(client, ["getserverlist"]).endswith(f"; user {user()} alone may read the configuration")


def test_of_a_local_file_it_is_told_whom_it_belongs_to(refused):
    client, place = refused
    closed = place / "closed"
    closed.write_text("x")
    closed.chmod(0o200)
    owner = f"belongs to user {user()} and group {group(client)}"
    assert said(client, ["cat", closed]).endswith(f"Permission denied; {closed} {owner}, mode 200")
    closed.chmod(0o444)
    os.chmod(place, 0o555)
    for words in (["cp", client.tslnfstab, place / "new"], ["mkdir", place / "new"], ["rm", closed]):
        assert said(client, words).endswith(f"Permission denied; {place} {owner}, mode 555")
