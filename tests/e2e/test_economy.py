"""What transfers and listings cost: calls to the server, and memory. Counts and bounds, never times."""

import os
import re
import time

import pytest

import client
import servers
from files import make_entries, make_links

MOUNT = "/wnfs-economy"
MEMORY_LIMIT_KIB = 64 << 10
GIB = 1 << 30


class Counting:
    """A loopnfsd that counts, the folder that it serves, and a client of it."""

    def __init__(self, home, folder, *words, **settings):
        self.folder = folder
        folder.mkdir()
        self.daemon = servers.CountingLoopnfsd(home, folder, *words)
        self.client = client.Client(home)
        block = servers.server_block("loop", self.daemon.address, [("/export", MOUNT)], **settings)
        self.client.tslnfstab.write_text(block)
        self.calls_a_file = 1 if "version" in settings else 2  # that is new and small

    def calls_of(self, *words, **environment):
        begun = time.monotonic()
        counts = self.daemon.counts_of(lambda: self.client.ok(*words, env=environment))
        self.seconds = time.monotonic() - begun
        return counts.get("COMPOUND") or sum(counts.values())  # a compound counts what it holds, too


@pytest.fixture
def counting(own, tmp_path):
    made = Counting(own.home, tmp_path / "served")
    yield made
    made.daemon.close()


@pytest.fixture(params=[(), servers.Loopnfsd4.words], ids=["nfsv3", "nfsv4.1"])
def counting_either(own, tmp_path, request):
    """A server of each version."""
    settings = servers.Loopnfsd4.settings if request.param else {}
    made = Counting(own.home, tmp_path / "served", *request.param, **settings)
    yield made
    made.daemon.close()


# What a listing told is good for five seconds. The sanitizers take so long for so many entries.
SANITIZED = "ASAN_OPTIONS" in os.environ
LISTED = 1000 if SANITIZED else 10000
FILES = 200 if SANITIZED else 1000


@pytest.mark.parametrize("command", [("ls",), ("ls", "-l"), ("find",)], ids=" ".join)
def test_a_listing_needs_no_more_than_one_call_for_twenty_entries(counting, command):
    make_entries(counting.folder / "many", LISTED)
    assert counting.calls_of(*command, f"{MOUNT}/many") <= LISTED / 20


@pytest.mark.parametrize("words", [("ls",), ("find",), ("getattr",)], ids=" ".join)
def test_a_file_system_is_asked_for_its_limits_once(counting, words):
    (counting.folder / "d" / "e").mkdir(parents=True)
    for path in (MOUNT, f"{MOUNT}/d"):
        counts = counting.daemon.counts_of(lambda path=path: counting.client.ok(*words, path))
        assert counts["FSINFO"] == 1, counts


# From there on the library makes the way to the source beside the one to the destination.
def test_the_source_is_told_of_before_the_destination_is_asked_about(counting, tmp_path):
    other = f"{MOUNT}-other"
    exports = [("/export", MOUNT), ("/export", other)]
    counting.client.tslnfstab.write_text(servers.server_block("loop", counting.daemon.address, exports))
    (counting.folder / "source").write_bytes(b"content")
    trace = tmp_path / "trace"
    counting.client.ok("-trace", trace, "-level", *"1111", "cp", f"{MOUNT}/source", f"{other}/copy")
    records = trace.read_text().splitlines()
    told = next(i for i, record in enumerate(records) if "tdm_expect" in record and f"{MOUNT}/source" in record)
    asked = next(i for i, record in enumerate(records) if "tdm_getattr" in record)
    assert told < asked
    assert (counting.folder / "copy").read_bytes() == b"content"


ONCE = 10  # calls for the contact, the directory itself and the good-bye


# What the listing told goes to the workers; each finds its own way to the server and leaves it.
workers = pytest.mark.parametrize("jobs", [1, 8], ids="jobs {}".format)


# Each finds out by a few lookups that names are new, and lists what is there every second then. Where others have the
# processor for longer than that, it begins again.
LOOKED_UP = 5


@pytest.mark.parametrize("is_new", [True, False], ids=["new directory", "directory"])
@workers
def test_a_small_file_among_many_goes_up_in_two_calls_or_one(counting_either, tmp_path, jobs, is_new):
    source, copies = make_entries(tmp_path / "small", FILES, 4096), counting_either.folder / "copies"
    words = ("-r", source) if is_new else (f"{source}/*",)
    if not is_new:
        copies.mkdir()
        (copies / "old").touch()
    calls = counting_either.calls_of("cp", *words, f"{MOUNT}/copies", TSLWNFS_JOBS=jobs)
    seconds = int(counting_either.seconds) + 1
    assert calls <= counting_either.calls_a_file * FILES + jobs * (ONCE + LOOKED_UP * seconds)
    assert len(list(copies.iterdir())) == FILES + (not is_new)
    assert all((copies / path.name).read_bytes() == path.read_bytes() for path in source.iterdir())


# A directory that was made by the same command has nothing in it yet.
def test_of_a_tree_that_goes_up_nothing_is_looked_up(counting_either, tmp_path):
    source = tmp_path / "tree"
    for folder in range(FOLDERS := 50):
        (source / f"d{folder}").mkdir(parents=True)
        for i in range(3):
            (source / f"d{folder}" / f"file{i}").write_bytes(b"content")
    calls = counting_either.calls_of("cp", "-r", source, f"{MOUNT}/copied", TSLWNFS_JOBS=1)
    seconds = int(counting_either.seconds) + 1
    assert calls <= FOLDERS * (1 + 3 * counting_either.calls_a_file) + ONCE + LOOKED_UP * seconds
    assert len(list((counting_either.folder / "copied").rglob("file*"))) == 3 * FOLDERS


@workers
def test_a_small_file_that_was_listed_comes_down_in_one_call(counting, tmp_path, jobs):
    make_entries(counting.folder / "many", FILES, 4096)
    (tmp_path / "down").mkdir()
    calls = counting.calls_of("cp", f"{MOUNT}/many/*", tmp_path / "down", TSLWNFS_JOBS=jobs)
    assert calls <= FILES + FILES / 20 + jobs * ONCE
    assert len(list((tmp_path / "down").iterdir())) == FILES


# Those that come next are asked for while one is copied, and none of them twice.
@pytest.mark.parametrize("words", [("cp",), ("cat",)], ids=" ".join)
def test_small_files_that_are_asked_for_ahead_come_down_in_one_call(counting_either, tmp_path, words):
    made = make_entries(counting_either.folder / "many", FILES, 4096)
    content = {path.name: path.read_bytes() for path in made.iterdir()}
    down = tmp_path / "down"
    down.mkdir()
    calls = counting_either.calls_of(*words, f"{MOUNT}/many/*", *([] if words == ("cat",) else [down]), TSLWNFS_JOBS=1)
    assert calls <= FILES + FILES / 20 + ONCE
    if words != ("cat",):
        assert {path.name: path.read_bytes() for path in down.iterdir()} == content


# More than the cache holds, so that most entries are asked for when it has lost them.
LONG = 2000 if SANITIZED else 40000
LONG_COMMANDS = [pytest.param(("ls", "-l"), id="ls -l"), pytest.param(("find",), id="find", marks=pytest.mark.slow)]


@pytest.mark.parametrize("command", LONG_COMMANDS)
def test_a_listing_that_no_cache_holds_needs_one_call_for_a_hundred_entries(counting, command):
    make_entries(counting.folder / "many", LONG)
    assert counting.calls_of(*command, f"{MOUNT}/many") <= LONG / 100 + ONCE


# The server goes through the directory once, however long the listing takes.
@pytest.mark.parametrize("command", LONG_COMMANDS)
def test_the_attributes_of_a_long_listing_come_with_its_names(counting, command):
    make_entries(counting.folder / "many", LONG)
    listed = []
    counts = counting.daemon.counts_of(lambda: listed.append(counting.client.ok(*command, f"{MOUNT}/many")))
    assert counts.get("READDIR", 0) == 0, counts
    assert counts["READDIRPLUS"] <= LONG / 900 + 2, counts
    assert counts["LOOKUP"] < ONCE, counts
    assert len(set(re.findall(rb"entry\d+", listed[0]))) == LONG


@pytest.mark.parametrize("words", [("rm", "-r", f"{MOUNT}/many"), ("rm", f"{MOUNT}/many/*")], ids=" ".join)
@workers
def test_a_file_among_many_goes_away_in_one_call(counting, words, jobs):
    many = make_entries(counting.folder / "many", FILES)
    entries_listed = FILES / 20
    assert counting.calls_of(*words, TSLWNFS_JOBS=jobs) <= FILES + entries_listed + jobs * ONCE
    assert not many.exists() or not list(many.iterdir())


# What the first of them wait for goes by the eight; the last ones of a pause may be fewer.
@pytest.mark.parametrize("counting_either", [servers.Loopnfsd4.words], ids=["nfsv4.1"], indirect=True)
def test_files_among_many_go_away_by_the_eight(counting_either):
    many = make_entries(counting_either.folder / "many", FILES)
    assert counting_either.calls_of("rm", f"{MOUNT}/many/*") <= FILES / 4 + ONCE
    assert not list(many.iterdir())


# The sanitizers' own memory is no measure of the program's.
needs_plain_build = pytest.mark.skipif(SANITIZED, reason="sanitizers take memory of their own")


# What a listing is to show of its entries is kept, and what is asked about them; not all that a server tells.
@pytest.mark.slow
@needs_plain_build
@pytest.mark.parametrize("options", [("-l",), ("-l", "-r"), ("-C", "-s")], ids=" ".join)
def test_the_attributes_of_a_long_listing_take_few_bytes_beside_the_names(counting, options):
    entries = 60_000
    make_links(counting.folder / "many", (f"entry{i}" for i in range(entries)))
    names = counting.client.peak_kib("ls", f"{MOUNT}/many")
    assert counting.client.peak_kib("ls", *options, f"{MOUNT}/many") < names + 30 * entries / 1024


# Of a directory in which few names match, the others are gone when it was listed.
@pytest.mark.slow
@needs_plain_build
def test_the_names_that_no_wildcard_matches_are_not_kept(counting):
    entries, length = 30_000, 200
    many = make_links(counting.folder / "many", (f"{i:0{length}}" for i in range(entries)))
    all_names = counting.client.peak_kib("ls", f"{MOUNT}/many")
    few_names = counting.client.peak_kib("rm", f"{MOUNT}/many/*9999")
    assert few_names < all_names - entries * length / 1024 / 2
    assert len(list(many.iterdir())) == entries - entries // 10_000


def sparse(path, size):
    with open(path, "wb") as made:
        made.truncate(size)
    return path


@pytest.mark.slow
@needs_plain_build
def test_printing_five_gibibytes_takes_less_than_64_mebibytes(counting):
    sparse(counting.folder / "large", 5 * GIB)
    assert counting.client.peak_kib("cat", f"{MOUNT}/large") < MEMORY_LIMIT_KIB


@pytest.mark.slow
@needs_plain_build
def test_a_dd_of_ten_gibibytes_takes_less_than_64_mebibytes(counting):
    sparse(counting.folder / "large", 10 * GIB)
    assert counting.client.peak_kib("dd", "-if", f"{MOUNT}/large", "-bs", "1m") < MEMORY_LIMIT_KIB


# A gibibyte fills either window many times over; these bytes end on a disk.
@pytest.mark.slow
@needs_plain_build
def test_copying_a_gibibyte_up_and_down_takes_less_than_64_mebibytes(counting, tmp_path):
    source = sparse(tmp_path / "large", GIB)
    assert counting.client.peak_kib("cp", source, f"{MOUNT}/up") < MEMORY_LIMIT_KIB
    assert (counting.folder / "up").stat().st_size == GIB
    assert counting.client.peak_kib("cp", f"{MOUNT}/up", tmp_path / "down") < MEMORY_LIMIT_KIB
    assert (tmp_path / "down").stat().st_size == GIB
