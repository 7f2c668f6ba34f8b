"""Large directories of nfs-ganesha, listed beside nfs-ls."""

import contextlib

import harness
import places
from measure import Command, in_turns
from results import at_most

TITLE = "Large directories"
NAMES = {
    "list": "ls -l and find over 10,000 entries, beside nfs-ls",
    "million": "ls, ls -l and find over 1,000,000 entries, beside nfs-ls, with the memory that they take",
}
COLUMNS = ("case", "ours", "nfs-ls", "ours / nfs-ls", "to reach", "peak, MiB", "nfs-ls's", "to reach")
TEXT = "NFSv3, nfs-ganesha, no round trip. nfs-ls prints attributes as `ls -l` does. A peak below 9 MiB is unknown."

LISTINGS = {"ls": ("ls",), "ls -l": ("ls", "-l"), "find -name": ("find", "-name", "*9999.dat")}
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
