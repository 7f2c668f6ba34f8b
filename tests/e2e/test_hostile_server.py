"""Servers that are hostile or broken: every command ends with a status of its own, tells no success that is none, and
touches nothing but what it was told to.

loopnfsd misbehaves on command. Client.run() refuses runs that end by a signal, with a finding of a sanitizer, or not at
all; the configured timeouts are short, so that a dead wait ends soon.
"""

import subprocess

import pytest
import servers
from files import content, make_file, tree_of
from texts import SUCCEEDED, failed

MOUNT = "/wnfs-hostile"
SIZE = 10_000
AT_TERMINAL = {"TSLWNFS_TERMINAL": "always"}
EVER = ":1:*"  # from the first call on, without end


class Hostile:
    """A loopnfsd with a directory `d` of two files, the client for it, and a local folder with a destination in it."""

    def __init__(self, client, place, faults, seed):
        self.client = client
        self.served, self.box = place / "served", place / "box"
        (self.served / "d").mkdir(parents=True)
        for name in ("f", "g"):
            make_file(self.served / "d" / name, SIZE)
        self.destination = self.box / "into" / "here"
        self.destination.mkdir(parents=True)
        self.source = make_file(self.box / "source", SIZE)
        self.control = place / "control"
        words = [word for fault in faults for word in ("--fault", fault)]
        words += ["--no-sync", "--seed", str(seed), "--control", self.control]
        self.daemon = servers.LoopnfsdProcess(client.home, *words, self.served)
        exports = [("/export", MOUNT)]
        block = servers.server_block("hostile", self.daemon.address, exports, mnt_timeout=3, io_timeout=2)
        client.tslnfstab.write_text(block)
        self.before = self.outside()

    def run(self, *words):
        return self.client.run(*words)

    def traced(self, *words):
        """A run and its trace."""
        trace = self.control.with_name("trace")
        run = self.client.run("-trace", trace, "-level", "1", "1", "1", "1", *words)
        return run, trace.read_text(errors="replace")

    def outside(self):
        """Everything in the local folder but what lies in the destination."""
        return {name: digest for name, digest in tree_of(self.box).items() if not name.startswith("into/here/")}

    def fired(self):
        """How many calls a fault befell."""
        told = subprocess.run(
            [self.client.home / "bin" / "loopnfsd", "--send", self.control, "stats"],
            capture_output=True,
            text=True,
            check=True,
        ).stdout
        return sum(int(word.split("=")[1]) for word in told.split() if word.startswith("fault."))

    def examine_downloads(self):
        """Runs what reads files; gives the statuses. What succeeds is right, and what is written stays in its place."""
        shown = self.run("cat", f"{MOUNT}/d/f")
        assert shown.status in (0, 1)
        assert shown.status == 1 or content(SIZE) in shown.out
        copied = self.run("cp", f"{MOUNT}/d/f", self.destination / "copy")
        assert copied.status in (0, 1)
        assert copied.status == 1 or (self.destination / "copy").read_bytes() == content(SIZE)
        return shown.status, copied.status

    def examine_upload(self):
        copied = self.run("cp", self.source, f"{MOUNT}/d/new")
        assert copied.status in (0, 1)
        assert copied.status == 1 or (self.served / "d" / "new").read_bytes() == content(SIZE)
        return copied.status

    def examine_listings(self):
        """Runs what reads directories; gives the statuses."""
        statuses = []
        for words in (["ls", "-l", f"{MOUNT}/d"], ["find", MOUNT], ["cp", "-r", f"{MOUNT}/d", self.destination]):
            statuses.append(self.run(*words).status)
            assert statuses[-1] in (0, 1)
        return statuses

    def close(self):
        self.daemon.close()
        assert self.outside() == self.before


@pytest.fixture
def hostile(own, tmp_path):
    """Makes a hostile server of the faults named; everything outside the destination must be as it was at the end."""
    made = []

    def make(*faults, seed=1):
        made.append(Hostile(own, tmp_path, faults, seed))
        return made[-1]

    yield make
    for one in made:
        one.close()


BROKEN = {
    "another-xid": "wrong-xid={}" + EVER,
    "no-such-program": "rpc-error={}:PROG_UNAVAIL:*",
    "another-version": "rpc-error={}:PROG_MISMATCH:*",
    "arguments-not-understood": "rpc-error={}:GARBAGE_ARGS:*",
    "oversized-records": "oversize-record={}" + EVER,
    "undersized-records": "undersize-record={}" + EVER,
    "rubbish-results": "rubbish={}" + EVER,
    "rubbish-records": "rubbish-record={}" + EVER,
}


@pytest.mark.parametrize("procedure", ["MNT", "FSINFO", "LOOKUP", "READ"])
@pytest.mark.parametrize("fault", BROKEN.values(), ids=BROKEN)
def test_downloads_end_in_an_error(hostile, fault, procedure):
    server = hostile(fault.format(procedure))
    assert server.examine_downloads() == (1, 1)
    assert server.fired() > 0


@pytest.mark.parametrize("procedure", ["CREATE", "WRITE"])
@pytest.mark.parametrize("fault", BROKEN.values(), ids=BROKEN)
def test_uploads_end_in_an_error(hostile, fault, procedure):
    server = hostile(fault.format(procedure))
    assert server.examine_upload() == 1
    assert server.fired() > 0


@pytest.mark.parametrize("fault", BROKEN.values(), ids=BROKEN)
def test_listings_end_in_an_error(hostile, fault):
    server = hostile(fault.format("READDIRPLUS"), fault.format("READDIR"))
    assert server.examine_listings()[:2] == [1, 1]
    assert list(server.destination.iterdir()) == []
    assert server.fired() > 0


@pytest.mark.parametrize("seed", range(12))
def test_a_reply_of_random_bytes_now_and_then(hostile, seed):
    """Three calls of the session get such an answer, the others a good one: an error, or the right outcome."""
    kind = ("rubbish", "rubbish-record", "undersize-record", "oversize-record")[seed % 4]
    nth = 1 + seed // 4
    server = hostile(f"{kind}=*:{nth}", f"{kind}=*:{nth + 3}", f"{kind}=*:{nth + 5}", seed=seed)
    server.examine_downloads()
    server.examine_upload()
    server.examine_listings()
    assert server.fired() > 0


@pytest.mark.parametrize("fault", [pytest.param("endless-readdir", marks=pytest.mark.slow), "cookie-loop"])
def test_a_directory_that_cannot_be_believed_is_an_error(hostile, fault):
    server = hostile(fault)
    run = server.run("ls", f"{MOUNT}/d")
    assert run.status == 1
    assert run.out.endswith(failed(1))


def test_a_name_that_no_path_can_hold_is_left_out_and_told(hostile):
    server = hostile("long-name")
    run = server.client.run("ls", f"{MOUNT}/d", env=AT_TERMINAL)
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert {line.strip() for line in run.out.split(b"\n")} >= {b"f", b"g"}
    assert f"{MOUNT}/d: names left out that no path can hold: 1".encode() in run.err


@pytest.mark.parametrize("fault", ["bad-names", "long-name"])
def test_a_tree_with_such_names_is_neither_copied_nor_deleted_with_success(hostile, fault):
    server = hostile(fault)
    copied = server.client.run("cp", "-r", f"{MOUNT}/d", server.destination / "copy", env=AT_TERMINAL)
    assert copied.status == 1
    assert f"{MOUNT}/d: names left out that no path can hold: ".encode() in copied.err
    assert {path.name for path in (server.destination / "copy").iterdir()} >= {"f", "g"}
    assert (server.destination / "copy" / "f").read_bytes() == content(SIZE)
    deleted = server.client.run("rm", "-r", f"{MOUNT}/d", env=AT_TERMINAL)
    assert deleted.status == 1
    assert f"{MOUNT}/d: names left out that no path can hold: ".encode() in deleted.err
    assert not list((server.served / "d").iterdir()), "what has a name is deleted"


def test_harmful_names_reach_nobody(hostile):
    server = hostile("bad-names")
    listed = server.run("ls", f"{MOUNT}/d")
    assert listed.status == 0
    lines = [line.rstrip(b" ") for line in listed.out.split(b"\n")]
    assert b"f" in lines and b"g" in lines
    for name in (b"", b"/", b"a/b", b"../up", b"/etc/passwd", b".", b"..", b"nul"):
        assert name not in lines[1:-1]
    found = server.run("find", MOUNT)
    assert b"passwd" not in found.out and b"../" not in found.out


@pytest.mark.parametrize("words", [["cp", "-r", f"{MOUNT}/d"], ["cp", f"{MOUNT}/d/*"], ["mv", f"{MOUNT}/d/*"]])
def test_harmful_names_lead_nothing_out_of_the_destination(hostile, words):
    server = hostile("bad-names")
    assert server.run(*words, server.destination).status in (0, 1)
    assert {path.name for path in server.destination.iterdir()} >= {"f", "g"}
    for path in server.destination.iterdir():
        assert path.read_bytes() in (content(SIZE), b""), path


@pytest.mark.parametrize(
    "fault", ["rubbish=EXPORT:1:*", "oversize-record=EXPORT:1:*", "rpc-error=EXPORT:PROG_UNAVAIL:*"]
)
def test_an_export_list_that_is_none_is_an_error(hostile, fault):
    server = hostile(fault)
    assert server.run("showmount", "-e", server.daemon.address).status == 1
    assert server.fired() > 0


SIZES = ["", "=20000", "=9223372036854775807", "=9223372036854775808", "=18446744073709551615"]


@pytest.mark.parametrize("size", SIZES)
def test_a_size_that_is_not_true_never_makes_bytes(hostile, size):
    server = hostile("big-size" + size)
    shown, trace = server.traced("cat", f"{MOUNT}/d/f")
    assert shown.status == 1
    assert "the file ends at byte 10000" in trace
    assert len(shown.out) < 2 * SIZE
    assert server.run("cp", f"{MOUNT}/d/f", server.destination / "copy").status == 1
    assert (server.destination / "copy").stat().st_size <= SIZE
    assert server.run("dd", "-if", f"{MOUNT}/d/f", "-of", server.destination / "dd").status == 1
    assert server.run("mv", f"{MOUNT}/d/f", server.destination / "moved").status == 1
    assert (server.served / "d" / "f").read_bytes() == content(SIZE)


@pytest.mark.parametrize("size", SIZES)
def test_a_size_that_is_not_true_is_harmless_elsewhere(hostile, size):
    server = hostile("big-size" + size)
    assert server.examine_upload() in (0, 1)
    for words in (["ls", "-l", f"{MOUNT}/d"], ["stat", f"{MOUNT}/d/f"], ["getattr", f"{MOUNT}/d"], ["find", MOUNT]):
        assert server.run(*words).out.endswith(SUCCEEDED), words


@pytest.mark.parametrize("size", [0, 31, 65, 128, 1000])
def test_handles_of_a_wrong_size_are_an_error(hostile, size):
    server = hostile(f"handle-size={size}")
    assert server.examine_downloads() == (1, 1)
    assert server.examine_upload() == 1
    assert server.examine_listings()[0] == 1
