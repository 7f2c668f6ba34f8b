"""One large file in NFSv4.1 beside NFSv3, of the same server."""

import contextlib
import itertools

import places
import servers
from measure import in_turns
from results import at_least
from transfers import WORKLOADS, Transfers, waiting

TITLE = "NFSv4.1 beside NFSv3"
NAMES = {"v4": "a large file in NFSv4.1 beside NFSv3"}
COLUMNS = ("case", "NFSv4.1", "NFSv3", "NFSv3 / NFSv4.1", "to reach")
TEXT = (
    "nfs-ganesha first. No server's two versions cost the same: what the ratio shows is both ends. The rows of libnfs,"
    " whose asynchronous interface drops the bytes where they arrive, show what the server makes of it; its NFSv4 is 4.0."
    " Then the same server, but that it keeps the memory of its answers (glibc.malloc.mmap_threshold and trim_threshold in"
    " its GLIBC_TUNABLES) instead of giving it back to the system after each and having it mapped and cleared anew. Then"
    " loopnfsd, which does the same with a file in either version: what is left is this side's."
)
WANTED = 0.9


def measure(bench):
    table = bench.report.table(f"{TITLE}, {bench.size} MiB", COLUMNS, TEXT)
    for kind, which in ((places.Ganesha, ""), (places.GaneshaThatKeepsMemory, ", memory kept")):
        with contextlib.closing(kind(bench)) as server:
            for round_trip, workload in itertools.product(places.ROUND_TRIPS_MS, WORKLOADS):
                with places.at_distance(bench, server, round_trip, waiting(workload)) as far:
                    compare(bench, table, server, far, workload, round_trip, which)
    compare_loopnfsd(bench, table)


def compare(bench, table, server, far, workload, round_trip, which):
    transfers = Transfers(bench, far.client, server.writable)
    ours = [transfers.ours(workload, mount) for mount in (places.MOUNT4, places.MOUNT)]
    peers = []
    if workload == "cat":
        peers = [transfers.asynchronous(bench, far, round_trip, version) for version in (4, 3)]
    measured = in_turns(bench.repeats, *ours, *filter(None, peers))
    tell(table, f"{workload}, {round_trip} ms{which}", *measured[:2], wanted=WANTED)
    if measured[2:]:
        tell(table, f"{workload}, {round_trip} ms{which}, libnfs (NFSv4.0)", *measured[2:])


def compare_loopnfsd(bench, table):
    with contextlib.closing(places.Loopback(bench)) as place:
        folder = bench.folder("versions")
        mounts = {round_trip: start_both(place, folder, round_trip) for round_trip in places.ROUND_TRIPS_MS}
        blocks = [block for blocks in mounts.values() for block in blocks.values()]
        place.client.tslnfstab.write_text("".join(blocks))
        transfers = Transfers(bench, place.client, folder)
        for round_trip, workload in itertools.product(mounts, WORKLOADS):
            both = [transfers.ours(workload, mount) for mount in mounts[round_trip]]
            tell(table, f"{workload}, {round_trip} ms, loopnfsd", *in_turns(bench.repeats, *both), wanted=WANTED)


def start_both(place, folder, round_trip):
    """Serves the folder in both versions, the newer first, and gives the block of each by its mount."""
    distance = ("--fault", f"rtt={round_trip}") if round_trip else ()
    blocks = {}
    for kind in (servers.Loopnfsd4, servers.Loopnfsd):
        server = place.start(*kind.words, "--no-sync", *distance, folder)
        name = f"{kind.name}-{round_trip}"
        blocks[f"/wnfs-{name}"] = servers.server_block(
            name, server.address, [("/export", f"/wnfs-{name}")], **kind.settings
        )
    return blocks


def tell(table, case, newer, older, wanted=None):
    ratio = older.median / newer.median
    table.add(case, newer, older, f"{ratio:.2f}", at_least(wanted, ratio) if wanted else None)
