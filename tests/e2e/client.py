"""An installed home and the program in it, run as an administrator would."""

import dataclasses
import os
import pathlib
import shutil
import subprocess
import sys

import namespace

# Far beyond what any command takes: a guard against a hanging program, not a measure.
HANG = 300


# Starts a command from a process that is small itself: what a child needs before its exec counts as its peak, too.
LAUNCHER = """
import os, sys
null = [(os.POSIX_SPAWN_OPEN, 1, "/dev/null", os.O_WRONLY, 0)]
pid = os.posix_spawnp(sys.argv[1], sys.argv[1:], os.environ, file_actions=null)
_, status, usage = os.wait4(pid, 0)
print(usage.ru_maxrss, file=sys.stderr)
sys.exit(os.waitstatus_to_exitcode(status))
"""


@dataclasses.dataclass
class Run:
    """What a finished command gave: its exit status and its two streams, as bytes."""

    status: int
    out: bytes
    err: bytes


class Client:
    """The program of one home. `enter` is the command line that takes it to where its servers are reachable."""

    def __init__(self, home, enter=()):
        self.home = pathlib.Path(home)
        self.enter = list(enter)

    @property
    def tslnfstab(self):
        return self.home / "dbs" / "tslnfstab"

    def environment(self, changes=None):
        """The environment of a run: nothing of the caller's but what sanitizers read, so that outputs are the same
        everywhere. A change to None takes a variable away."""
        kept = {name: value for name, value in os.environ.items() if name in ("ASAN_OPTIONS", "UBSAN_OPTIONS")}
        result = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "LC_ALL": "C.UTF-8", "TZ": "UTC", **kept}
        result["TESSEL_HOME"] = str(self.home)
        for name, value in (changes or {}).items():
            result.pop(name, None)
            if value is not None:
                result[name] = str(value)
        return result

    def start(self, *arguments, env=None, cwd=None, program=None):
        """Starts a command that goes on while the test does something to its server; see finish()."""
        command = [*self.enter, str(program or self.home / "bin" / "tslwnfs"), *map(os.fspath, arguments)]
        return subprocess.Popen(
            command,
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env=self.environment(env),
            cwd=cwd,
            preexec_fn=namespace.die_with_parent,
        )

    def run(self, *arguments, stdin=b"", **options):
        return finish(self.start(*arguments, **options), stdin)

    def ok(self, *arguments, **options):
        """Runs a command that has to succeed and gives its standard output."""
        done = self.run(*arguments, **options)
        assert done.status == 0, (arguments, done)
        return done.out

    def peak_kib(self, *arguments):
        """The peak resident size of a command that has to succeed, its output dropped."""
        program = [*self.enter, self.home / "bin" / "tslwnfs"]
        done = subprocess.run(
            [sys.executable, "-I", "-S", "-c", LAUNCHER, *program, *arguments],
            env=self.environment(),
            capture_output=True,
            timeout=HANG,
            check=False,
        )
        assert done.returncode == 0, done
        return int(done.stderr.split()[-1])


def finish(process, stdin=b""):
    """Waits for a command that was started. It may fail, but not crash."""
    try:
        out, err = process.communicate(stdin, timeout=HANG)
    except subprocess.TimeoutExpired:
        process.kill()
        process.communicate()
        raise
    report = err.decode(errors="replace")
    assert "Sanitizer" not in report and "runtime error:" not in report, report
    assert process.returncode >= 0, f"ended by signal {-process.returncode}: {process.args}"
    return Run(process.returncode, out, err)


LARGE = 1 << 20  # bytes


def link_or_copy(source, destination):
    """Programs and libraries are shared: hundreds of homes of their size would fill a disk."""
    if os.path.getsize(source) >= LARGE:
        try:
            return os.link(source, destination)
        except OSError:
            pass  # on another file system
    return shutil.copy2(source, destination)


def copy_of_home(home, place):
    """A home of a test's own, which it may configure and damage; a large file in it is to be replaced, not written
    to. Gives its path."""
    shutil.copytree(home, place, symlinks=True, copy_function=link_or_copy)
    return place
