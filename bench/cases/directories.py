"""Large directories of nfs-ganesha, listed beside nfs-ls."""

import contextlib
import fnmatch
import os

import harness
import places
from measure import Command, expect, in_turns
from results import at_most

TITLE = "Large directories"
NAMES = {
    "list": "ls -l and find over 10,000 entries, beside nfs-ls",
    "million": "ls, ls -l and find over 1,000,000 entries, beside nfs-ls, with the memory that they take",
    "huge": "the same, ls and rm by a wildcard, over --entries links; only by name, as it takes an hour",
}
COLUMNS = ("case", "ours", "nfs-ls", "ours / nfs-ls", "to reach", "peak, MiB", "nfs-ls's", "to reach")
TEXT = "NFSv3, nfs-ganesha, no round trip. nfs-ls prints attributes as `ls -l` does. A peak below 9 MiB is unknown."

LISTINGS = {"ls": ("ls",), "ls -l": ("ls", "-l"), "find -name": ("find", "-name", "*9999.dat")}
MATCHES = "*99999.dat"
# Times nfs-ls, and MiB.
WANTED = {
    "list": {"ls -l": (1.0, None), "find -name": (None, None)},
    "million": {"ls": (1.0, 200), "ls -l": (1.2, 250), "find -name": (1.5, None)},
}
MIB_OF_MB = 1e6 / (1 << 20)


def measure(bench):
    table = bench.report.table(TITLE, COLUMNS, TEXT)
    if bench.wants("list"):
        beside_peer(bench, table, 10000, bench.repeats, WANTED["list"])
    if bench.wants("million"):
        beside_peer(bench, table, 20000 if bench.quick else 1000000, min(3, bench.repeats), WANTED["million"])
    if bench.wants_expressly("huge"):
        huge(bench, table, bench.entries)


def beside_peer(bench, table, entries, repeats, wanted):
    # A server of its own: what it keeps of so many entries is not to burden what comes after.
    with contextlib.closing(places.Ganesha(bench)) as server, places.at_distance(bench, server) as far:
        folder = server.writable / "many"
        folder.mkdir()
        harness.make_many(folder, (f"f{i:07}.dat" for i in range(entries)))
        environment = far.client.environment({"TSLWNFS_TERMINAL": "reasons"})
        commands = [Command(far.theirs("nfs-ls", far.url("many")), environment)]
        commands += [Command(words_of(far, listing), environment) for listing in wanted]
        peer, *ours = in_turns(repeats, *commands)
    for listing, one in zip(wanted, ours):
        tell(table, f"{listing}, {entries:,} entries", one, peer, *wanted[listing])


# A file system in memory has no more names than the machine has pages by half, unless it is told to.
def huge(bench, table, entries):
    with contextlib.closing(places.Ganesha(bench)) as server, places.at_distance(bench, server) as far:
        server.namespace.run("mount", "-o", "remount,nr_inodes=0", str(far.export.parent))
        folder = server.writable / "many"
        folder.mkdir()
        names = [f"f{i:08}.dat" for i in range(entries)]
        harness.make_links(folder, names)
        environment = far.client.environment({"TSLWNFS_TERMINAL": "reasons"})
        matches = f"{places.MOUNT}/many/{MATCHES}"
        ours = {listing: words_of(far, listing) for listing in LISTINGS}
        ours |= {f"{command} {MATCHES}": far.ours(command, matches) for command in ("ls", "rm")}
        (peer,) = in_turns(1, Command(far.theirs("nfs-ls", far.url("many")), environment))
        for case, words in ours.items():
            (one,) = in_turns(1, Command(words, environment))
            tell(table, f"{case}, {entries:,} entries", one, peer, None, None)
        left = sum(1 for _ in os.scandir(folder))
        expect(left == sum(not fnmatch.fnmatch(name, MATCHES) for name in names), "the matches are gone")


def words_of(far, listing):
    command, *rest = LISTINGS[listing]
    path = f"{places.MOUNT}/many"
    return far.ours(command, path, *rest) if command == "find" else far.ours(command, *rest, path)


def tell(table, case, ours, peer, most_time, most_memory):
    ratio = ours.median / peer.median
    table.add(
        case,
        *(ours, peer, f"{ratio:.2f}", most_time and at_most(most_time, ratio)),
        *(f"{ours.peak:.0f}", f"{peer.peak:.0f}", most_memory and at_most(most_memory, ours.peak / MIB_OF_MB)),
    )
