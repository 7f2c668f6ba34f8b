"""One large file from and to nfs-ganesha, beside libnfs-utils and libnfs itself."""

import contextlib
import pathlib
import subprocess
import sys

import namespace
import places
from measure import Command, in_turns
from results import at_least, at_most
from transfers import IN_FLIGHT, WORKLOADS, Transfers, waiting

TITLE = "One large file"
NAMES = {
    "cat": "a large file read to nowhere, beside nfs-cat and libnfs's asynchronous interface",
    "up": "the same to the server, beside nfs-cp",
    "down": "the same from the server, beside nfs-cp",
    "default": "these three without a round trip, under the machine's own congestion control",
    "plain": "cat beside the same bytes over one bare TCP connection, received and dropped",
}
COLUMNS = ("case", "ours", "peer", "peer / ours", "to reach")

OURS, UTILITIES, ASYNCHRONOUS = "tslwnfs", "libnfs-utils", "libnfs, asynchronous"

WANTED = {
    "cat": {0: 1.2, 1: 2.5, 10: 12},
    "up": {0: 1.0, 1: 1.5, 10: 6},
    "down": {0: 1.0, 1: 2.0, 10: 8},
}
WANTED_ASYNCHRONOUS = 0.95
WANTED_PROCESSOR = 0.77  # at most 1.3 times the peer's
MOST_MEMORY = 64  # MiB


def measure(bench):
    flights = ", ".join(f"{count} at {round_trip} ms" for round_trip, count in IN_FLIGHT.items())
    text = f"NFSv3, nfs-ganesha. The asynchronous peer drops the bytes where they arrive; READs in flight: {flights}."
    table = bench.report.table(f"{TITLE}, {bench.size} MiB", COLUMNS, text)
    workloads = [name for name in WORKLOADS if bench.wants(name)]
    with contextlib.closing(places.Ganesha(bench)) as server:
        for round_trip in places.ROUND_TRIPS_MS:
            for workload in workloads:
                measured = beside_peers(bench, server, workload, round_trip)
                tell_speeds(table, workload, round_trip, measured)
                tell_costs(bench, table, workload, round_trip, measured)
                draw(bench, workload, round_trip, measured)
        if "up" in workloads:
            remote_to_remote(bench, table, server)
        if bench.wants("plain"):
            plain(bench, table, server)
        if bench.wants("default"):
            under_default(bench, server)


def beside_peers(bench, server, workload, round_trip):
    """Runs ours and the peers in turns; gives what each took."""
    with places.at_distance(bench, server, round_trip, waiting(workload)) as far:
        commands = commands_of_all(bench, server, far, workload, round_trip)
        return dict(zip(commands, in_turns(bench.repeats, *commands.values())))


def commands_of_all(bench, server, far, workload, round_trip):
    transfers = Transfers(bench, far.client, server.writable)
    words = {
        "cat": ("nfs-cat", far.url("large")),
        "up": ("nfs-cp", transfers.source, far.url("up")),
        "down": ("nfs-cp", far.url("large"), transfers.back),
    }[workload]
    commands = {
        OURS: transfers.ours(workload, places.MOUNT),
        UTILITIES: transfers.command(workload, far.theirs(*words), places.MOUNT),
    }
    if workload == "cat" and (asynchronous := transfers.asynchronous(bench, far, round_trip)):
        commands[ASYNCHRONOUS] = asynchronous
    return commands


def tell_speeds(table, workload, round_trip, measured, wanted=WANTED):
    ours, peer = measured[OURS], measured[UTILITIES]
    ratio = peer.median / ours.median
    goal = at_least(wanted[workload][round_trip], ratio) if wanted else None
    table.add(f"{workload}, {round_trip} ms", ours, peer, f"{ratio:.2f}", goal)
    if ASYNCHRONOUS in measured:
        peer = measured[ASYNCHRONOUS]
        ratio = peer.median / ours.median
        goal = at_least(WANTED_ASYNCHRONOUS, ratio) if wanted else None
        table.add(f"cat, {round_trip} ms, beside {ASYNCHRONOUS}", ours, peer, f"{ratio:.2f}", goal)


def tell_costs(bench, table, workload, round_trip, measured):
    if workload == "cat" and round_trip == 0:
        costs = [each.processor_seconds / (bench.size / 1024) for each in measured.values()]
        tell_processor(table, "cat", costs[0], costs[1], at_least(WANTED_PROCESSOR, costs[1] / costs[0]))
        if ASYNCHRONOUS in measured:
            tell_processor(table, f"cat, beside {ASYNCHRONOUS}", costs[0], costs[2])
    # With the longest round trip the windows are fullest.
    if round_trip == places.ROUND_TRIPS_MS[-1]:
        tell_peak(table, workload, measured[OURS])


def tell_processor(table, case, ours, peer, goal=None):
    table.add(f"processor seconds a GiB, {case}", f"{ours:.2f}", f"{peer:.2f}", f"{peer / ours:.2f}", goal)


def tell_peak(table, case, measured):
    goal = at_most(MOST_MEMORY, measured.peak)
    table.add(f"peak resident size, {case}, MiB", f"{measured.peak:.1f}", None, None, goal)


def draw(bench, workload, round_trip, measured):
    for who, one in measured.items():
        bench.report.point(workload, who, round_trip, bench.size / one.median)


# Both windows are full.
def remote_to_remote(bench, table, server):
    with places.at_distance(bench, server, places.ROUND_TRIPS_MS[-1]) as far:
        transfers = Transfers(bench, far.client, server.writable)
        words = far.ours("cp", f"{places.MOUNT}/large", f"{places.MOUNT}/up")
        (measured,) = in_turns(1, transfers.command("up", words, places.MOUNT))
    tell_peak(table, "remote to remote", measured)


def under_default(bench, server):
    name = places.default_congestion_control()
    if name == places.CONGESTION_CONTROL:
        bench.report.leave_out("the machine's own congestion control", f"it is {name} anyway")
        return
    places.set_congestion_control(server.namespace, name)
    text = f"As above, where connections have the machine's default congestion control, {name}."
    table = bench.report.table(f"{TITLE} under {name}", COLUMNS, text)
    for workload in WORKLOADS:
        tell_speeds(table, workload, 0, beside_peers(bench, server, workload, 0), wanted=None)
    places.set_congestion_control(server.namespace, places.CONGESTION_CONTROL)


def plain(bench, table, server):
    program = [*server.client.enter, sys.executable, "-I", "-S", pathlib.Path(__file__).parent.parent / "bare_tcp.py"]
    command = [*program, "send", bench.large(bench.size)]
    sender = subprocess.Popen(command, stdout=subprocess.PIPE, text=True, preexec_fn=namespace.die_with_parent)
    try:
        with places.at_distance(bench, server) as far:
            cat = Transfers(bench, far.client, server.writable).ours("cat", places.MOUNT)
            bare = Command([*program, "receive", sender.stdout.readline().strip()], cat.environment)
            ours, limit = in_turns(bench.repeats, cat, bare)
    finally:
        namespace.stop(sender)
        sender.stdout.close()
    table.add("cat, 0 ms, beside bare TCP", ours, limit, f"{limit.median / ours.median:.2f}")
