"""A network of the tests' own: loopback alone, every port free, 111 included."""

import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import time

TOOLS = ("unshare", "nsenter", "ip", "mount")


def die_with_parent():
    """Run in a child before exec: it is killed when the tests are, however they end.

    And it gets signals as from a terminal, though who started the tests in the background had some of them ignored."""
    PR_SET_PDEATHSIG = 1
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM):
        signal.signal(number, signal.SIG_DFL)
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


def await_condition(condition, what, process=None, limit=60):
    """Polls until the condition holds. The limit is a guard against a server that never comes up."""
    end = time.monotonic() + limit
    while not condition():
        if process is not None and process.poll() is not None:
            raise RuntimeError(f"{what}: the process ended with status {process.returncode}")
        if time.monotonic() > end:
            raise TimeoutError(what)
        time.sleep(0.02)


def stop(process):
    """Ends a process that we started, by its own id."""
    process.terminate()
    try:
        process.wait(10)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def why_impossible():
    """The reason why no namespace can be made here, or None."""
    if os.geteuid() != 0:
        return "needs root for a network namespace"
    for tool in TOOLS:
        if shutil.which(tool, path="/usr/sbin:/usr/bin:/sbin:/bin") is None:
            return f"{tool} is not installed"
    trial = subprocess.run(["unshare", "--net", "--mount", "true"], capture_output=True, check=False)
    return None if trial.returncode == 0 else "namespaces are not permitted here"


class Namespace:
    """A network and a mount namespace, held open by a sleeping process until close()."""

    def __init__(self):
        self.holder = subprocess.Popen(
            ["unshare", "--net", "--mount", "sleep", "infinity"],
            stdin=subprocess.DEVNULL,
            preexec_fn=die_with_parent,
        )
        own = os.readlink("/proc/self/ns/net")
        await_condition(lambda: self._entered(own), "the namespace", self.holder)
        self.run("ip", "link", "set", "lo", "up")

    def _entered(self, own):
        here = pathlib.Path(f"/proc/{self.holder.pid}")
        return os.readlink(here / "ns/net") != own and (here / "comm").read_text() == "sleep\n"

    def enter(self, *, mounts=False):
        """The words that run a command in here; with mounts, among this namespace's mounts too."""
        words = ["nsenter", "--target", str(self.holder.pid), "--net"]
        return words + ["--mount", "--"] if mounts else words + ["--"]

    def run(self, *command):
        subprocess.run([*self.enter(mounts=True), *command], check=True, stdin=subprocess.DEVNULL)

    def start(self, *command, log):
        """Starts a server in here; its output goes to the file log."""
        with open(log, "wb") as stream:
            return subprocess.Popen(
                [*self.enter(mounts=True), *command],
                stdin=subprocess.DEVNULL,
                stdout=stream,
                stderr=subprocess.STDOUT,
                preexec_fn=die_with_parent,
            )

    def mount_tmpfs(self, place):
        self.run("mount", "-t", "tmpfs", "tmpfs", place)

    def seen_from_outside(self, path):
        """Where a path of this namespace's mounts is found by a process outside it."""
        return pathlib.Path(f"/proc/{self.holder.pid}/root") / str(path).lstrip("/")

    def close(self):
        stop(self.holder)
