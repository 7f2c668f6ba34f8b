"""Many small files up, down and away, in both versions of NFS."""

import contextlib
import os

import harness
import places
from measure import Command, expect, in_turns
from results import at_least, at_most

TITLE = "Small files"
NAMES = {"small": "1,000 files of 4 KiB up, down and removed, in NFSv3 and NFSv4.1"}
COLUMNS = ("case", "NFSv3", "one at a time", "to reach", "NFSv4.1", "NFSv3 / NFSv4.1", "to reach")

STEPS = ("up", "down", "rm")
MOST_SECONDS = {1: dict(zip(STEPS, (1.2, 0.6, 0.7))), 10: dict(zip(STEPS, (6, 2.5, 4)))}
# Where nothing is waited for, several at a time shall not be slower than one; what is measured varies by so much.
SLOWER_BY_CHANCE = 1.05


def measure(bench):
    count = 100 if bench.quick else 1000
    text = (
        f"{count:,} files of 4 KiB, nfs-ganesha: `cp 'src/*' M/up`, `cp 'M/up/*' back`, `rm 'M/up/*'`. Without a round"
        " trip it is not to be slower than one at a time (TSLWNFS_JOBS=1)."
    )
    table = bench.report.table(TITLE, COLUMNS, text)
    source = bench.folder("small")
    harness.make_many(source, [f"f{i:04}" for i in range(count)], os.urandom(4096))
    with contextlib.closing(places.Ganesha(bench)) as server:
        for round_trip in places.ROUND_TRIPS_MS:
            with places.at_distance(bench, server, round_trip) as far:
                tell(table, round_trip, rounds(bench, server, far, source, one_at_a_time=round_trip == 0))


def rounds(bench, server, far, source, *, one_at_a_time):
    """Up, down and away by each way in turns; gives {way: {step: measured}}."""
    ways = {"3": (places.MOUNT, None), "4": (places.MOUNT4, None)}
    if one_at_a_time:
        ways["one"] = (places.MOUNT, "1")
    commands = []
    for mount, jobs in ways.values():
        commands += steps(bench, server, far, source, mount, jobs)
    measured = iter(in_turns(bench.repeats, *commands))
    return {way: {step: next(measured) for step in STEPS} for way in ways}


def steps(bench, server, far, source, mount, jobs):
    """The commands of one way; each finds what the one before it left."""
    there, back = server.writable / "up", bench.folder("back")
    there.mkdir(exist_ok=True)
    environment = far.client.environment({"TSLWNFS_TERMINAL": "reasons", "TSLWNFS_JOBS": jobs})
    content = (source / "f0000").read_bytes()
    names = sorted(os.listdir(source))

    def expect_there():
        expect(sorted(os.listdir(there)) == names, "the files that went up")
        expect(all((there / name).read_bytes() == content for name in names), "their content")

    def expect_back():
        expect(sorted(os.listdir(back)) == names, "the files that came down")
        for name in names:
            expect((back / name).read_bytes() == content, "their content")
            (back / name).unlink()

    return [
        Command(far.ours("cp", f"{source}/*", f"{mount}/up"), environment, expect_there),
        Command(far.ours("cp", f"{mount}/up/*", back), environment, expect_back),
        Command(far.ours("rm", f"{mount}/up/*"), environment, lambda: expect(not os.listdir(there), "nothing left")),
    ]


def tell(table, round_trip, measured):
    for step in STEPS:
        ours, newer = measured["3"][step], measured["4"][step]
        single = measured["one"][step] if "one" in measured else None
        most = SLOWER_BY_CHANCE * single.median if single else MOST_SECONDS[round_trip][step]
        ratio = ours.median / newer.median
        goal = at_most(most, ours.median)
        table.add(f"{step}, {round_trip} ms", ours, single, goal, newer, f"{ratio:.2f}", at_least(1, ratio))
