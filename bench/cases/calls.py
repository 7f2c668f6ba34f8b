"""Calls that a server counts: what a listing and a small file cost wherever the server is."""

import contextlib
import os

import client
import harness
import servers
from results import at_most

TITLE = "Calls"
NAMES = {"calls": "calls that loopnfsd counts: for an entry of a listing, for a small file"}
COLUMNS = ("case", "NFSv3", "to reach", "NFSv4.1", "to reach")
TEXT = "Counted by loopnfsd, a compound as one. What a command costs as a whole, contact and listing, is shared out."

MOUNT = "/wnfs-counted"
LISTINGS = (("ls",), ("ls", "-l"), ("find",))
MOST_AN_ENTRY = 0.01
MOST_A_FILE = {"up": (3, 1), "down": (1, 1), "rm": (1, 1)}  # in NFSv3 and in NFSv4.1
FILES = 1000


def measure(bench):
    table = bench.report.table(TITLE, COLUMNS, TEXT)
    folder = bench.folder("counted")
    entries = (1000, 10000) if bench.quick else (10000, 100000)  # within what is cached of attributes, and beyond
    for count in entries:
        (folder / str(count)).mkdir()
        harness.make_many(folder / str(count), (f"f{i:06}" for i in range(count)))
    source = bench.folder("small")
    harness.make_many(source, (f"f{i:04}" for i in range(FILES)), os.urandom(4096))
    older, newer = [count_all(bench, folder, entries, source, version) for version in ("nfsv3", "nfsv4.1")]
    for case, (cost, most) in older.items():
        newer_cost, newer_most = newer[case]
        table.add(case, *told(cost, most), *told(newer_cost, newer_most))


def told(cost, most):
    """A figure and whether it is reached: a small file's calls to a tenth, as the contact is shared out among them."""
    if most < 1:
        return f"{cost:.4f}", at_most(most, cost)
    return f"{cost:.2f}", at_most(most, round(cost, 1))


def count_all(bench, folder, entries, source, version):
    """The calls for one entry or file of each case, and how many they may be."""
    home = bench.new_home()
    with contextlib.closing(servers.CountingLoopnfsd(home, folder, "--versions", "3,4")) as server:
        ours = client.Client(home)
        block = servers.server_block("loop", server.address, [("/export", MOUNT)], version=version)
        ours.tslnfstab.write_text(block)

        def calls_of(*words):
            # One after the other: several at a time make a contact each.
            counts = server.counts_of(lambda: ours.ok(*words, env={"TSLWNFS_JOBS": "1"}))
            return counts["COMPOUND"] if version == "nfsv4.1" else sum(counts.values())

        costs = {}
        for count in entries:
            for words in LISTINGS:
                case = f"{' '.join(words)} of {count:,} entries, an entry"
                costs[case] = calls_of(*words, f"{MOUNT}/{count}") / count, MOST_AN_ENTRY
        for step, words in steps(bench, folder, source).items():
            most = MOST_A_FILE[step][version == "nfsv4.1"]
            costs[f"{step}, {FILES:,} files of 4 KiB, a file"] = calls_of(*words) / FILES, most
    return costs


def steps(bench, folder, source):
    (folder / "up").mkdir(exist_ok=True)
    return {
        "up": ("cp", f"{source}/*", f"{MOUNT}/up"),
        "down": ("cp", f"{MOUNT}/up/*", bench.folder("back")),
        "rm": ("rm", f"{MOUNT}/up/*"),
    }
