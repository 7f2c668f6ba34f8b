"""A copy between two files of one server: made by the server, beside read and written by us."""

import contextlib
import os
import shutil
import subprocess

import harness
import places
import servers
from measure import Command, expect, in_turns
from results import at_least

TITLE = "Copies within a server"
NAMES = {"copies": "a large file copied by loopnfsd itself (NFSv4.2), beside read and written (NFSv4.1), at 10 ms"}
COLUMNS = ("case", "by the server", "read and written", "ratio", "to reach")
TEXT = "loopnfsd at 10 ms: on a memory file system, where it copies, and on XFS in memory, where it shares blocks."
WANTED = 5  # where blocks are shared; what a real copy takes is the server's affair
ROUND_TRIP_MS = 10


def measure(bench):
    table = bench.report.table(f"{TITLE}, {bench.size} MiB", COLUMNS, TEXT)
    compare(bench, table, "COPY, memory file system", "copy", None, lambda place: bench.folder("copied"))
    why = why_no_sharing()
    if why:
        bench.report.leave_out("CLONE", why)
    else:
        compare(bench, table, "CLONE, XFS", "clone", WANTED, lambda place: mount_sharing(bench, place))


def why_no_sharing():
    if not shutil.which("mkfs.xfs", path="/usr/sbin:/usr/bin:/sbin:/bin"):
        return "xfsprogs is not installed"
    with open("/proc/filesystems") as known:
        return None if "\txfs\n" in known.read() else "this kernel has no XFS"


def mount_sharing(bench, place):
    """Mounts a file system whose files can share blocks in the namespace alone, so that it goes with that."""
    image, folder = bench.unused("image"), bench.folder("mounted")
    with open(image, "wb") as out:
        out.truncate((2 * bench.size + 1024) << 20)
    subprocess.run(["mkfs.xfs", "-q", "-m", "reflink=1", image], check=True)
    place.namespace.run("mount", "-o", "loop", str(image), str(folder))
    return folder


def compare(bench, table, case, way, wanted, make_folder):
    """Copies with the same server in both minor versions: the first copies by itself."""
    with contextlib.closing(places.Loopback(bench)) as place:
        folder = make_folder(place)
        seen = place.namespace.seen_from_outside(folder)
        with open(harness.make_large(seen / "large", bench.size), "rb") as large:
            os.fsync(large)  # a file at rest: blocks that have no place yet cannot be shared
        words = ("--versions", "4", "--copies", way, "--no-sync", "--fault", f"rtt={ROUND_TRIP_MS}")
        server = place.start(*words, folder)
        blocks = [
            servers.server_block(version, server.address, [("/export", f"/wnfs-{version}")], version=version)
            for version in ("nfsv4.2", "nfsv4.1")
        ]
        place.client.tslnfstab.write_text("".join(blocks))
        both = [copy(bench, place, seen, f"/wnfs-{version}") for version in ("nfsv4.2", "nfsv4.1")]
        by_server, by_us = in_turns(bench.repeats, *both)
    ratio = by_us.median / by_server.median
    table.add(case, by_server, by_us, f"{ratio:.2f}", wanted and at_least(wanted, ratio))


def copy(bench, place, seen, mount):
    def check():
        expect(os.path.getsize(seen / "copy") == bench.size << 20, "the size of the copy")
        place.client.ok("rm", f"{mount}/copy")

    words = places.utility(place.client, "cp", f"{mount}/large", f"{mount}/copy")
    return Command(words, place.client.environment({"TSLWNFS_TERMINAL": "reasons"}), check)
