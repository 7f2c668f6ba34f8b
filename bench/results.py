"""What came out: tables with what is to be reached, on the terminal and in RESULTS.md, and the plot."""

import dataclasses
import operator
import os
import pathlib
import platform
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
COMPARISONS = {">=": operator.ge, "<=": operator.le}


@dataclasses.dataclass(frozen=True)
class Goal:
    """A bound on a figure, and the figure."""

    sign: str
    bound: float
    figure: float

    @property
    def reached(self):
        return COMPARISONS[self.sign](self.figure, self.bound)

    def __str__(self):
        return f"{self.sign} {self.bound:.3g}"


def at_least(bound, figure):
    return Goal(">=", bound, figure)


def at_most(bound, figure):
    return Goal("<=", bound, figure)


class Table:
    """The rows of a section. The first cell of a row is the case; a Goal among the others is judged, if goals are."""

    def __init__(self, title, columns, text="", *, judged=True):
        self.title, self.columns, self.text, self.judged = title, columns, text, judged
        self.rows, self.goals = [], []

    def add(self, case, *cells):
        goals = [cell for cell in cells if isinstance(cell, Goal)]
        self.goals += [(f"{self.title}: {case}", goal) for goal in goals]
        self.rows.append([case, *map(self._text_of, cells)])
        told = [f"{name} {cell}" for name, cell in zip(self.columns[1:], self.rows[-1][1:]) if cell]
        print(f"{case:34} {' | '.join(told)}", flush=True)

    def _text_of(self, cell):
        if isinstance(cell, Goal) and self.judged and not cell.reached:
            return f"{cell}: **missed**"
        return "" if cell is None else str(cell)

    def lines(self):
        yield from ("", f"## {self.title}", "")
        if self.text:
            yield from (self.text, "")
        if self.rows:
            yield "| " + " | ".join(self.columns) + " |"
            yield "|---" * len(self.columns) + "|"
        for row in self.rows:
            yield "| " + " | ".join(row + [""] * (len(self.columns) - len(row))) + " |"


class Report:
    """All tables of a run, and the points of the plot: {workload: {who: [(round trip in ms, MiB/s)]}}."""

    def __init__(self, *, judged=True):
        self.judged = judged
        self.tables, self.points, self.left_out = [], {}, []

    def table(self, title, columns, text=""):
        print(f"\n{title}", flush=True)
        self.tables.append(Table(title, columns, text, judged=self.judged))
        return self.tables[-1]

    def leave_out(self, what, why):
        """Notes what could not be measured here."""
        print(f"not measured: {what}: {why}", flush=True)
        self.left_out.append(f"{what}: {why}")

    def point(self, workload, who, round_trip, speed):
        self.points.setdefault(workload, {}).setdefault(who, []).append((round_trip, speed))

    def verdict(self):
        """How many goals were reached, and a line for each that was missed."""
        goals = [each for table in self.tables for each in table.goals]
        missed = [f"missed: {case}" for case, goal in goals if not goal.reached]
        return [f"{len(goals) - len(missed)} of {len(goals)} goals reached", *missed]

    def write(self, facts):
        """Writes RESULTS.md, with the facts of the run as (name, value) pairs, and the plot."""
        lines = [
            "# Results",
            "",
            "Written by `bench/run`. Seconds are min / median / max; everything else is of medians. The peer is",
            "libnfs-utils (`nfs-cat`, `nfs-cp`, `nfs-ls`), run in turns with ours against the same server.",
            "[What limits it](../docs/performance.md#what-limits-it) explains what keeps the rows from being better.",
            "",
        ]
        lines += [f"- {name}: {value}" for name, value in facts]
        lines += [f"- {each}" for each in self.verdict()]
        lines += [f"- not measured: {each}" for each in self.left_out]
        lines += ["", "![throughput over round trip](results.svg)"]
        for table in self.tables:
            lines += table.lines()
        (HERE / "RESULTS.md").write_text("\n".join(lines) + "\n")
        plot(self.points, HERE / "results.svg")


STYLES = {"tslwnfs": "o-", "libnfs-utils": "s--", "libnfs, asynchronous": "^:"}
TICKS = (50, 100, 200, 500, 1000, 2000)


def plot(points, path):
    """A panel for each workload: speed over round trip, ours and the peers'."""
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as pyplot

    figure, panels = pyplot.subplots(1, len(points), figsize=(9, 3.6), sharey=True, squeeze=False)
    for panel, (workload, lines) in zip(panels[0], points.items()):
        for who, line in lines.items():
            panel.plot([str(trip) for trip, _ in line], [speed for _, speed in line], STYLES[who], label=who)
        panel.set(yscale="log", xlabel="round trip, ms", title=workload)
        panel.set_yticks(TICKS, [f"{tick:,}" for tick in TICKS])
        panel.minorticks_off()
        panel.grid(axis="y", alpha=0.3)
    panels[0][0].set_ylabel("MiB/s")
    figure.legend(*panels[0][0].get_legend_handles_labels(), loc="lower center", ncols=len(STYLES), frameon=False)
    figure.tight_layout(rect=(0, 0.08, 1, 1))
    figure.savefig(path, metadata={"Date": None})


def cpu_name():
    for line in pathlib.Path("/proc/cpuinfo").read_text().splitlines():
        if line.startswith("model name"):
            return line.split(":", 1)[1].strip()
    return platform.machine()


def machine():
    return f"{cpu_name()}, {os.cpu_count()} cores, Linux {platform.release()}"


PACKAGES = ("libnfs-utils", "libnfs13", "nfs-ganesha", "openssl", "libgssapi-krb5-2")


def versions():
    query = ["dpkg-query", "-W", "-f", "${Package} ${Version}; ", *PACKAGES]
    others = subprocess.run(query, capture_output=True, text=True, check=False).stdout.strip("; ")
    describe = ["git", "-C", HERE, "describe", "--always", "--dirty"]
    ours = subprocess.run(describe, capture_output=True, text=True, check=False).stdout.strip()
    return f"tslwnfs {ours}; {others}"
