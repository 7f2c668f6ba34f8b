"""A machine of the tests' own to install packages on: this one's files, with all changes kept apart and thrown away."""

import pathlib
import subprocess

import namespace

# What package managers and the programs they call keep for themselves.
BOOKS = ("var/lib/dpkg", "var/lib/rpm", "var/lib/systemd", "var/log", "var/cache", "run", "tmp")
# Far beyond what any command takes: a guard against a hang, not a measure.
HANG = 300


def why_impossible(place):
    """The reason why no machine can be made here, or None."""
    why = namespace.why_impossible()
    if why:
        return why
    try:
        Machine(place).close()
    except subprocess.CalledProcessError as error:
        return f"no overlay of the root file system: {error.stderr.decode().strip()}"
    return None


class Machine:
    """An overlay of the root file system, in namespaces of its own."""

    def __init__(self, place):
        self.namespace = namespace.Namespace()
        try:
            self._mount(place)
        except BaseException:
            self.close()
            raise

    def _mount(self, place):
        self.namespace.mount_tmpfs(str(place))
        self.root, self.changes = place / "root", place / "changes"
        for folder in (self.root, self.changes, place / "work"):
            self.namespace.seen_from_outside(folder).mkdir()
        layers = f"lowerdir=/,upperdir={self.changes},workdir={place / 'work'}"
        self._mount_one("-t", "overlay", "overlay", "-o", layers, str(self.root))
        for name in ("proc", "dev"):
            self._mount_one("--rbind", f"/{name}", str(self.root / name))
        self._mount_one("-t", "tmpfs", "-o", "mode=1777", "tmpfs", str(self.root / "tmp"))

    def _mount_one(self, *words):
        subprocess.run([*self.namespace.enter(mounts=True), "mount", *words], check=True, capture_output=True)

    def enter(self):
        """The words that run a command in here."""
        return [*self.namespace.enter(mounts=True), "chroot", str(self.root)]

    def path(self, inside):
        """Where a path of the machine is found from outside."""
        return self.namespace.seen_from_outside(f"{self.root}/{str(inside).lstrip('/')}")

    def run(self, *command, env=None, check=True):
        """Runs a command with the environment of a fresh login, and gives the finished process."""
        settings = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/", "LC_ALL": "C.UTF-8", **(env or {})}
        words = ["env", "-i", *(f"{name}={value}" for name, value in settings.items()), *map(str, command)]
        done = subprocess.run(
            [*self.enter(), *words], stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=HANG, check=False
        )
        assert not check or done.returncode == 0, (command, done.stdout, done.stderr)
        return done

    def receive(self, file):
        """Puts a file or a folder of this tree into the machine; gives its path there."""
        inside = pathlib.Path("/tmp") / file.name
        subprocess.run(["cp", "-r", file, self.path(inside)], check=True)
        return inside

    def additions(self):
        """The paths that this machine has and the real one has not, but for the books that are kept of packages."""
        kept = self.namespace.seen_from_outside(self.changes)
        found = (path.relative_to(kept) for path in kept.rglob("*") if not path.is_char_device())
        return {f"/{path}" for path in found if not pathlib.Path("/", path).exists() and not str(path).startswith(BOOKS)}

    def close(self):
        self.namespace.close()
