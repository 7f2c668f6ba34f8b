"""Commands that are timed, in turns."""

import dataclasses
import pathlib
import statistics
import subprocess
import sys
import typing

LAUNCHER = pathlib.Path(__file__).resolve().parent / "launch.py"


class Failed(Exception):
    """A command that was to be measured failed, or did not do what it was for."""


@dataclasses.dataclass
class Command:
    """What is run. `after` checks what it did and puts that back, outside of the measured time."""

    words: list
    environment: dict
    after: typing.Callable[[], None] = lambda: None


class Measured:
    """The runs of one command; prints as the seconds on the wall, min / median / max."""

    def __init__(self):
        self.seconds, self.processor, self.peaks = [], [], []

    def add(self, seconds, processor, peak_kib):
        self.seconds.append(seconds)
        self.processor.append(processor)
        self.peaks.append(peak_kib / 1024)

    @property
    def median(self):
        return statistics.median(self.seconds)

    @property
    def processor_seconds(self):
        return statistics.median(self.processor)

    @property
    def peak(self):
        """MiB."""
        return max(self.peaks)

    def __str__(self):
        return f"{min(self.seconds):.2f} / {self.median:.2f} / {max(self.seconds):.2f}"


def take(command):
    """Runs a command once; gives seconds, processor seconds and the peak resident size in KiB."""
    words = [sys.executable, "-I", "-S", LAUNCHER, *command.words]
    done = subprocess.run(
        [str(word) for word in words], env=command.environment, capture_output=True, text=True, check=False
    )
    if done.returncode != 0:
        raise Failed(f"{' '.join(map(str, command.words))}: {done.stderr.strip()}")
    command.after()
    return [float(word) for word in done.stdout.split()]


def in_turns(repeats, *commands):
    """Runs the commands in turns, so that all see the same machine; gives what each of them took."""
    measured = [Measured() for _ in commands]
    for _ in range(repeats):
        for command, one in zip(commands, measured):
            one.add(*take(command))
    return measured


def expect(condition, what):
    """Ends the benchmark where a command said that it succeeded and did something else."""
    if not condition:
        raise Failed(f"not as expected: {what}")
