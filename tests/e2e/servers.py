"""The NFS servers that the same tests run against: our own loopback server, and one that others wrote."""

import pathlib
import re
import shutil
import subprocess

import client
import namespace

READ_WRITE = "/wnfs-e2e-rw"
READ_ONLY = "/wnfs-e2e-ro"


def server_block(name, address, exports, **settings):
    """A server's block of tslnfstab, in the block form; exports are (export, mount point) pairs."""
    lines = ["#<server block begin>", f"server: {name}", f"local: 127.0.0.1 \t path: {address}"]
    lines += [f"export: {export} \t mount: {mount}" for export, mount in exports]
    lines += [f"{key}: {value}" for key, value in settings.items()]
    return "\n".join([*lines, "#<server block end>", ""])


class Server:
    """A running server with a writable and a read-only export, and the home that is configured for it."""

    name = "?"

    def __init__(self, home, writable, read_only):
        self.client = client.Client(home)
        self.writable = pathlib.Path(writable)
        self.read_only = pathlib.Path(read_only)
        self.run, self.ok = self.client.run, self.client.ok

    def ports(self):
        """The TCP ports that the server's programs answer on."""
        raise NotImplementedError

    def close(self):
        raise NotImplementedError


class Loopnfsd(Server):
    """loopnfsd on a port that the system picks. It keeps what is not committed to itself, so that a COMMIT that was
    forgotten shows."""

    name = "loopnfsd"

    def __init__(self, home, place):
        writable, read_only = place / "rw", place / "ro"
        writable.mkdir(parents=True)
        read_only.mkdir()
        super().__init__(home, writable, read_only)
        self.daemon = LoopnfsdProcess(
            home, "--no-sync", "--hold-unstable", "--export", f"/rw={writable}", "--export", f"/ro={read_only},ro"
        )
        exports = [("/rw", READ_WRITE), ("/ro", READ_ONLY)]
        self.client.tslnfstab.write_text(server_block("loop", self.daemon.address, exports))

    def ports(self):
        return [self.daemon.port]

    def close(self):
        self.daemon.close()


class LoopnfsdProcess:
    """A loopnfsd on a free port of loopback. A folder given by itself is served as /export."""

    def __init__(self, home, *words):
        self.process = subprocess.Popen(
            [home / "bin" / "loopnfsd", *words],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            text=True,
            preexec_fn=namespace.die_with_parent,
        )
        first_line = self.process.stdout.readline()
        if not first_line:
            raise RuntimeError(f"loopnfsd ended with status {self.process.wait()}")
        self.port = int(re.search(r"127\.0\.0\.1:(\d+)", first_line)[1])
        self.address = f"127.0.0.1:{self.port}"

    def close(self):
        namespace.stop(self.process)
        self.process.stdout.close()


class CountingLoopnfsd(LoopnfsdProcess):
    """A loopnfsd that serves a folder as /export and can be asked how many calls something made."""

    def __init__(self, home, folder):
        self.program = home / "bin" / "loopnfsd"
        self.control = home / "control"
        super().__init__(home, "--no-sync", "--control", self.control, folder)

    def command(self, *words):
        return subprocess.run(
            [self.program, "--send", self.control, *words], check=True, capture_output=True, text=True
        ).stdout

    def calls_of(self, action):
        """The number of NFS and MOUNT calls that arrive while the action runs."""
        self.command("reset-stats")
        action()
        counts = dict(pair.split("=") for pair in self.command("stats").split())
        return sum(int(count) for name, count in counts.items() if name.isupper())


GANESHA_CONFIGURATION = """
NFS_CORE_PARAM {{ Protocols = 3; Enable_NLM = false; Enable_RQUOTA = false; }}
EXPORT_DEFAULTS {{ Protocols = 3; SecType = sys; Squash = No_Root_Squash; Attr_Expiration_Time = 0; }}
EXPORT {{ Export_Id = 1; Path = {writable}; Pseudo = /rw; Access_Type = RW; FSAL {{ Name = VFS; }} }}
EXPORT {{ Export_Id = 2; Path = {read_only}; Pseudo = /ro; Access_Type = RO; FSAL {{ Name = VFS; }} }}
"""


class Ganesha(Server):
    """nfs-ganesha on a memory file system, with rpcbind on its real port, in a namespace of its own."""

    name = "ganesha"

    def __init__(self, home, place):
        place.mkdir(parents=True)
        self.processes = []
        self.namespace = namespace.Namespace()
        try:
            self._start(home, place)
        except BaseException:
            self.close()
            raise

    def _start(self, home, place):
        for directory in ("/run", "/var/lib/nfs", place):
            self.namespace.mount_tmpfs(str(directory))
        inside = self.namespace.seen_from_outside
        for directory in (place / "rw", place / "ro", "/run/ganesha", "/var/lib/nfs/ganesha"):
            inside(directory).mkdir(parents=True)
        super().__init__(home, inside(place / "rw"), inside(place / "ro"))
        self.client.enter = self.namespace.enter()

        configuration = self.client.home / "ganesha.conf"
        configuration.write_text(GANESHA_CONFIGURATION.format(writable=place / "rw", read_only=place / "ro"))
        self._spawn("rpcbind", "-f", "-w")
        namespace.await_condition(lambda: self._answers(100000, 2), "rpcbind", self.processes[-1])
        self._spawn("ganesha.nfsd", "-F", "-L", "STDOUT", "-f", configuration, "-p", "/run/ganesha.pid")
        namespace.await_condition(
            lambda: self._answers(100003, 3) and self._answers(100005, 3), "nfs-ganesha", self.processes[-1]
        )
        exports = [(place / "rw", READ_WRITE), (place / "ro", READ_ONLY)]
        self.client.tslnfstab.write_text(server_block("ganesha", "127.0.0.1", exports))

    def _spawn(self, *command):
        log = self.client.home / f"{command[0]}.log"
        self.processes.append(self.namespace.start(*map(str, command), log=log))

    def _answers(self, program, version):
        """True when the program answers a NULL call over TCP on the port that rpcbind tells."""
        probe = subprocess.run(
            [*self.namespace.enter(), "rpcinfo", "-T", "tcp", "127.0.0.1", str(program), str(version)],
            capture_output=True,
            check=False,
            timeout=60,
        )
        return probe.returncode == 0

    def ports(self):
        table = subprocess.run(
            [*self.namespace.enter(), "rpcinfo", "-p", "127.0.0.1"], capture_output=True, text=True, check=True
        ).stdout
        rows = [line.split() for line in table.splitlines()[1:]]
        return sorted({int(row[3]) for row in rows if row[2] == "tcp"})

    def close(self):
        for process in reversed(self.processes):
            namespace.stop(process)
        self.namespace.close()

    @staticmethod
    def why_impossible():
        for tool in ("ganesha.nfsd", "rpcbind", "rpcinfo"):
            if shutil.which(tool, path="/usr/sbin:/usr/bin:/sbin:/bin") is None:
                return f"{tool} is not installed"
        if not list(pathlib.Path("/usr/lib").glob("*/ganesha/libfsalvfs.so")):
            return "nfs-ganesha-vfs is not installed"
        return namespace.why_impossible()


KINDS = {"loopnfsd": Loopnfsd, "ganesha": Ganesha}
