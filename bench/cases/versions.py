"""One large file in NFSv4.1 beside NFSv3, of the same server."""

import contextlib

import places
from measure import in_turns
from results import at_least
from transfers import WORKLOADS, Transfers, waiting

TITLE = "NFSv4.1 beside NFSv3"
NAMES = {"v4": "a large file in NFSv4.1 beside NFSv3"}
COLUMNS = ("case", "NFSv4.1", "NFSv3", "NFSv3 / NFSv4.1", "to reach")
TEXT = "nfs-ganesha. No server's two versions cost the same: what the ratio shows is both ends."
WANTED = 0.9


def measure(bench):
    table = bench.report.table(f"{TITLE}, {bench.size} MiB", COLUMNS, TEXT)
    with contextlib.closing(places.Ganesha(bench)) as server:
        for round_trip in places.ROUND_TRIPS_MS:
            for workload in WORKLOADS:
                with places.at_distance(bench, server, round_trip, waiting(workload)) as far:
                    transfers = Transfers(bench, far.client, server.writable)
                    both = [transfers.ours(workload, mount) for mount in (places.MOUNT4, places.MOUNT)]
                    newer, older = in_turns(bench.repeats, *both)
                ratio = older.median / newer.median
                table.add(f"{workload}, {round_trip} ms", newer, older, f"{ratio:.2f}", at_least(WANTED, ratio))
