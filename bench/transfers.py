"""A large file read to nowhere, up and down with the utility: what several cases measure."""

import os
import shutil

import places
from measure import Command, expect

WORKLOADS = ("cat", "up", "down")
IN_FLIGHT = {0: 4, 1: 16, 10: 32}  # READs of libnfs's asynchronous interface at a round trip, as many as suit it best


class Transfers:
    """The commands of one client, whose mounts show what is seen here as the folder `writable`. Size is in MiB; without
    one it is that of the run's large file."""

    def __init__(self, bench, client, writable, environment=None, size=None):
        self.client, self.writable = client, writable
        self.size = size or bench.size
        self.source = bench.large(self.size)
        self.environment = client.environment({"TSLWNFS_TERMINAL": "reasons", **(environment or {})})
        self.back = bench.unused("back")
        if not (writable / "large").exists():
            shutil.copy(self.source, writable / "large")

    def ours(self, workload, mount):
        words = {
            "cat": ("cat", f"{mount}/large"),
            "up": ("cp", self.source, f"{mount}/up"),
            "down": ("cp", f"{mount}/large", self.back),
        }[workload]
        return self.command(workload, places.utility(self.client, *words), mount)

    def command(self, workload, words, mount):
        """A command of anybody's that does the workload's work; the mount is one where the copy can be removed."""
        check = {"cat": lambda: None, "up": lambda: self._copied_up(mount), "down": self._copied_down}[workload]
        return Command(words, self.environment, check)

    def asynchronous(self, bench, far, round_trip, version=3):
        """`cat` by libnfs's asynchronous interface, or None where that was not built."""
        program = bench.program("async_cat")
        if not program.exists():
            bench.report.leave_out(f"the asynchronous peer, {round_trip} ms", "built without libnfs-dev")
            return None
        words = far.theirs(program, IN_FLIGHT[round_trip], far.url("large", version))
        return self.command("cat", words, places.MOUNT)

    # Through the server, which would else keep the file open, and its memory.
    def _copied_up(self, mount):
        self._expect_whole(self.writable / "up")
        self.client.ok("rm", f"{mount}/up", env=self.environment)

    def _copied_down(self):
        self._expect_whole(self.back)
        self.back.unlink()

    def _expect_whole(self, path):
        expect(os.path.getsize(path) == self.size << 20, f"the size of {path}")


def waiting(workload):
    """The direction of a transfer that carries little, which a relay lets wait."""
    return "replies" if workload == "up" else "requests"
