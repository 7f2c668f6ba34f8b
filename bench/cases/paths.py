"""Several paths to one server, each limited to a rate."""

import contextlib

import harness
import places
import servers
from measure import Command, in_turns
from results import at_least

TITLE = "Two paths"
NAMES = {"paths": "loopnfsd behind two paths, each limited to a rate, beside one of them"}
COLUMNS = ("case", "two paths", "one path", "ratio", "to reach")
WANTED = 1.8
ADDRESSES = ("127.0.0.1", "127.0.0.2")
MEBIBYTES = 64  # two seconds over one path
RATE = 32 << 20  # bytes a second


def measure(bench):
    size = 8 if bench.quick else MEBIBYTES
    table = bench.report.table(TITLE, COLUMNS, f"loopnfsd, {RATE >> 20} MiB/s a path.")
    folder = bench.folder("limited")
    harness.make_large(folder / "large", size)
    with contextlib.closing(places.Loopback(bench)) as place:
        words = [word for address in ADDRESSES for word in ("--address", address)]
        server = place.start(*words, "--fault", f"rate={RATE}", folder)
        mounts = {"/wnfs-two": server.addresses, "/wnfs-one": server.addresses[:1]}
        blocks = [
            servers.server_block(mount[1:], " ".join(addresses), [("/export", mount)])
            for mount, addresses in mounts.items()
        ]
        place.client.tslnfstab.write_text("".join(blocks))
        environment = place.client.environment({"TSLWNFS_TERMINAL": "reasons"})
        cats = [Command(places.utility(place.client, "cat", f"{mount}/large"), environment) for mount in mounts]
        two, one = in_turns(bench.repeats, *cats)
    ratio = one.median / two.median
    table.add(f"cat, {size} MiB", two, one, f"{ratio:.2f}", at_least(WANTED, ratio))
