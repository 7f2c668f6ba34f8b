"""A terminal with a program in it, as a person would see it."""

import dataclasses

import pexpect
import pyte

import namespace
from client import HANG


@dataclasses.dataclass
class Shown:
    """What a finished command left: its exit status, every byte it sent, and the lines that are on the screen."""

    status: int
    sent: str
    lines: list

    @property
    def said(self):
        """The lines beside the command's own output."""
        return [line for line in self.lines if line.startswith("tslwnfs: ")]


class Terminal:
    """Runs commands of a client, each on a screen of its own. Lines longer than the screen is wide are broken there."""

    ROWS = 50

    def __init__(self, client, columns=300):
        self.client = client
        self.columns = columns

    def start(self, *words, env=None, program=None):
        command = [*self.client.enter, program or self.client.home / "bin" / "tslwnfs", *words]
        name, *arguments = map(str, command)
        return pexpect.spawn(
            name,
            arguments,
            env=self.client.environment({"TERM": "dumb", **(env or {})}),
            dimensions=(self.ROWS, self.columns),
            encoding="utf-8",
            timeout=HANG,
            preexec_fn=namespace.die_with_parent,
        )

    def finish(self, process, before=""):
        """before: what the caller has read of the process already."""
        process.expect(pexpect.EOF)
        process.close()
        assert process.signalstatus is None, process.before
        screen = pyte.Screen(self.columns, self.ROWS)
        sent = before + process.before
        pyte.Stream(screen).feed(sent)
        lines = [line.rstrip() for line in screen.display]
        return Shown(process.exitstatus, sent, [line for line in lines if line])

    def run(self, *words, **options):
        return self.finish(self.start(*words, **options))
