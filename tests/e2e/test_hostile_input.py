"""A damaged catalogue, a tslnfstab of rubbish: the program ends with a status of its own, never by a signal.

The seeds are fixed, so that a failure comes back; Client.run() refuses runs that end by a signal or with a finding of a
sanitizer.
"""

import random

import pytest
import servers
from test_home import catalogues
from texts import banner

STATUSES = (0, 1, 4)


def exercise(client, folder):
    """Commands that print, trace and format many messages."""
    trace = folder.parent / "trace"
    for words in (["ls", folder], ["cat", folder / "none"], ["help"], ["dd", "-seek", "x"], ["copy", "a"], ["ls", ""]):
        run = client.run("-trace", trace, "-level", "1", "1", "1", "1", *words)
        assert run.status in STATUSES


@pytest.fixture
def folder(tmp_path):
    path = tmp_path / "folder"
    path.mkdir()
    return path


@pytest.mark.parametrize("tenths", range(10))
def test_a_catalogue_cut_short(own, folder, tenths):
    for path in catalogues(own.home):
        data = path.read_bytes()
        path.write_bytes(data[: len(data) * tenths // 10])
    exercise(own, folder)


@pytest.mark.parametrize("seed", range(20))
def test_a_catalogue_with_flipped_bits(own, folder, seed):
    chance = random.Random(seed)
    for path in catalogues(own.home):
        data = bytearray(path.read_bytes())
        for _ in range(1 << (seed % 8)):
            data[chance.randrange(len(data))] ^= 1 << chance.randrange(8)
        path.write_bytes(data)
    exercise(own, folder)


@pytest.mark.parametrize("conversion", [b"%n", b"%s", b"%999999d", b"%*d", b"%hn"])
def test_a_catalogue_whose_texts_ask_for_other_arguments(own, folder, conversion):
    """Every text keeps its length, and says the conversion over and over."""
    path = next(found for found in catalogues(own.home) if found.parent.name == "en")
    data = path.read_bytes()
    start = data.index(b"Usage: see the command summary.")
    texts = bytearray(data[start:])
    for position in range(0, len(texts) - len(conversion), 8):
        if b"\0" not in texts[position : position + len(conversion)]:
            texts[position : position + len(conversion)] = conversion
    path.write_bytes(data[:start] + texts)
    exercise(own, folder)


@pytest.mark.parametrize("kind", ["directory", "unreadable"])
def test_a_catalogue_that_is_no_file(own, folder, kind):
    for path in catalogues(own.home):
        path.unlink()
        if kind == "directory":
            path.mkdir()
        else:
            path.touch(0)
    exercise(own, folder)


@pytest.mark.parametrize("seed", range(40))
def test_a_tslnfstab_of_random_bytes_leaves_local_paths_usable(own, folder, seed):
    chance = random.Random(seed)
    own.tslnfstab.write_bytes(chance.randbytes(chance.choice([1, 100, 1023, 1024, 5000, 70_000])))
    assert own.ok("ls", folder).startswith(banner("DIR", folder))


KEYS = ["uid", "gid", "server", "local", "path", "export", "mount", "security", "version", "mnt_timeout", "rdmaport"]
KEYS += ["community", "security_default", "principal_host", "management", "nconnect", "io_timeout", "mountport", "nfsport"]
# Values that name a host stay on loopback, on a port where nothing listens: no test asks another machine.
VALUES = ["127.0.0.1:1", "1", "-1", "0", "99999999999999999999", "", "#", "%s%n", "/hostile", "/", "x" * 1500, "\t", "\0"]


@pytest.mark.parametrize("seed", range(40))
def test_a_tslnfstab_of_odd_values_ends_every_command(own, folder, seed):
    chance = random.Random(seed)
    lines = ["#<server block begin>", "server: odd", "path: 127.0.0.1:1", "export: /e mount: /hostile", "mnt_timeout: 1"]
    for _ in range(chance.randrange(1, 30)):
        key = chance.choice(KEYS)
        value = "127.0.0.1:1" if key in ("server", "local", "path") else chance.choice(VALUES)
        lines.append(key + chance.choice([": ", ":", " ", "\t:\t", "::"]) + value)
    own.tslnfstab.write_text("\n".join(lines))
    for words in (["ls", "/hostile/a"], ["cat", "/hostile/a"], ["ls", folder]):
        assert own.run(*words).status in STATUSES


def test_a_tslnfstab_that_cannot_be_read_makes_no_path_local(own, folder):
    """Which paths are remote is not known then; to take them all for local ones could write to the wrong place."""
    own.tslnfstab.mkdir()
    assert own.run("ls", folder).status == 1
    assert own.run("mkdir", folder / "new").status == 1
    assert list(folder.iterdir()) == []


def test_a_bad_block_makes_only_its_own_server_unusable(own, folder, tmp_path):
    served = tmp_path / "served"
    served.mkdir()
    daemon = servers.LoopnfsdProcess(own.home, served)
    try:
        own.tslnfstab.write_text(
            servers.server_block("bad", "127.0.0.1:1", [("/export", "/hostile")], mnt_timeout="soon")
            + servers.server_block("good", daemon.address, [("/export", "/wnfs-good")])
        )
        own.ok("mkdir", "/wnfs-good/made")
        assert (served / "made").is_dir()
        assert own.run("ls", "/hostile/a").status == 1
    finally:
        daemon.close()
