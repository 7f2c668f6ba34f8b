"""The NFS servers that the same tests run against: our own loopback server, and one that others wrote."""

import pathlib
import re
import shutil
import socket
import subprocess

import certificates
import client
import namespace

READ_WRITE = "/wnfs-e2e-rw"
READ_ONLY = "/wnfs-e2e-ro"


def server_block(name, addresses, exports, **settings):
    """A server's block of tslnfstab, in the block form; exports are (export, mount point) pairs. Several addresses are
    several paths."""
    lines = ["#<server block begin>", f"server: {name}"]
    for address in addresses.split():
        lines.append(f"local: {'::1' if address.startswith('[') else '127.0.0.1'} \t path: {address}")
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

    def nfs_port(self):
        """The TCP port of the NFS program."""
        raise NotImplementedError

    def block_through(self, port, **settings):
        """What tslnfstab says for a client that reaches the NFS program through a relay on this port."""
        raise NotImplementedError

    def kill(self):
        """Ends the server as a crash does: what it kept to itself is lost."""
        raise NotImplementedError

    def start_again(self):
        """Starts a server that was killed, on the same port and the same files; ready when this returns."""
        raise NotImplementedError

    def close(self):
        raise NotImplementedError


class Loopnfsd(Server):
    """loopnfsd on a port that the system picks. It keeps what is not committed to itself, so that a COMMIT that was
    forgotten shows."""

    name = "loopnfsd"
    words = ()  # further options of loopnfsd
    settings = {}  # of the block

    def __init__(self, home, place):
        writable, read_only = place / "rw", place / "ro"
        writable.mkdir(parents=True)
        read_only.mkdir()
        super().__init__(home, writable, read_only)
        exports = ["--export", f"/rw={writable}", "--export", f"/ro={read_only},ro"]
        self.daemon = LoopnfsdProcess(home, "--no-sync", "--hold-unstable", *self.words, *exports)
        self.client.tslnfstab.write_text(self.block_through(self.daemon.port))

    def ports(self):
        return [self.daemon.port]

    def nfs_port(self):
        return self.daemon.port

    def block_through(self, port, **settings):
        exports = [("/rw", READ_WRITE), ("/ro", READ_ONLY)]
        return server_block("loop", f"127.0.0.1:{port}", exports, **{**self.settings, **settings})

    def kill(self):
        self.daemon.kill()

    def start_again(self):
        self.daemon.start_again()

    def close(self):
        self.daemon.close()


class Loopnfsd4(Loopnfsd):
    """loopnfsd as a server that speaks NFSv4 only."""

    name = "loopnfsd4"
    words = ("--versions", "4")
    settings = {"version": "nfsv4.1"}


class Loopnfsd4ByTls(Loopnfsd4):
    """loopnfsd as a server that speaks NFSv4 only and is used by TLS."""

    name = "tls4"

    def __init__(self, home, place):
        authority = certificates.Authority(pathlib.Path(home).parent / "authority")
        signed = authority.sign("server")
        self.words = (*self.words, "--tls", signed.certificate, signed.key)
        self.settings = {**self.settings, "transport_security": "tls", "tls_ca": authority.certificate}
        super().__init__(home, place)

    @staticmethod
    def why_impossible():
        return None if shutil.which("openssl") else "openssl is not installed"


class LoopnfsdProcess:
    """A loopnfsd on a free port of loopback. A folder given by itself is served as /export. `enter` are the words that
    take it to another namespace."""

    def __init__(self, home, *words, enter=()):
        self.command = [*enter, home / "bin" / "loopnfsd", *words]
        self._start(self.command)

    def _start(self, command):
        self.process = subprocess.Popen(
            command,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            text=True,
            preexec_fn=namespace.die_with_parent,
        )
        first_line = self.process.stdout.readline()
        if not first_line:
            raise RuntimeError(f"loopnfsd ended with status {self.process.wait()}")
        self.addresses = re.findall(r"(?:127\.0\.0\.\d|\[::1\]):\d+", first_line)
        self.address = self.addresses[0]
        self.port = int(self.address.rpartition(":")[2])

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.process.stdout.close()

    def start_again(self):
        self._start([*self.command, "--port", str(self.port)])

    def close(self):
        namespace.stop(self.process)
        self.process.stdout.close()


class CountingLoopnfsd(LoopnfsdProcess):
    """A loopnfsd that serves a folder as /export and can be asked how many calls something made."""

    def __init__(self, home, folder, *words):
        self.program = home / "bin" / "loopnfsd"
        self.control = home / "control"
        super().__init__(home, "--no-sync", "--control", self.control, *words, folder)

    def send(self, *words):
        return subprocess.run(
            [self.program, "--send", self.control, *words], check=True, capture_output=True, text=True
        ).stdout

    def counts_of(self, action):
        """The number of calls of each NFS and MOUNT procedure that arrive while the action runs."""
        self.send("reset-stats")
        action()
        counts = dict(pair.split("=") for pair in self.send("stats").split())
        return {name: int(count) for name, count in counts.items() if name.isupper()}

    def calls_of(self, action):
        """The number of NFS and MOUNT calls that arrive while the action runs."""
        return sum(self.counts_of(action).values())


class FaultyServer:
    """A loopnfsd that is told through its control socket when to misbehave, and a client that is configured for it.
    `remote` is the export's mount point, `files` the folder behind it. It keeps uncommitted data to itself."""

    MOUNT = "/wnfs-faulty"

    def __init__(self, home, place, *words, **settings):
        self.files = place / "served"
        self.files.mkdir()
        self.remote = self.MOUNT
        self.control = place / "control"
        self.daemon = LoopnfsdProcess(
            home, "--no-sync", "--hold-unstable", "--control", self.control, *words, self.files
        )
        self.client = client.Client(home)
        self.settings = settings
        self.configure()
        self.run, self.ok, self.start = self.client.run, self.client.ok, self.client.start
        self.kill, self.start_again, self.close = self.daemon.kill, self.daemon.start_again, self.daemon.close

    def configure(self, **settings):
        """Writes tslnfstab, with further settings of the server's block."""
        self.settings.update(settings)
        exports = [("/export", self.MOUNT)]
        self.client.tslnfstab.write_text(
            server_block("faulty", " ".join(self.daemon.addresses), exports, **self.settings)
        )

    def __truediv__(self, name):
        return f"{self.remote}/{name}"

    def tell(self, command):
        """Sends a command to the server's control and gives the answer."""
        with socket.socket(socket.AF_UNIX) as control:
            control.connect(str(self.control))
            control.sendall(f"{command}\n".encode())
            with control.makefile() as answers:
                answer = answers.readline().rstrip()
        assert not answer.startswith("error"), (command, answer)
        return answer

    def fault(self, *faults):
        for fault in faults:
            self.tell(f"fault {fault}")

    def count(self, name):
        """One of the server's statistics."""
        return int(dict(pair.split("=") for pair in self.tell("stats").split()).get(name, 0))

    def await_count(self, name, least, process):
        """Waits until a statistic has come to a number, while a command runs."""
        namespace.await_condition(lambda: self.count(name) >= least, f"{name}={least}", process)


GANESHA_CONFIGURATION = """
NFS_CORE_PARAM {{ Protocols = {protocol}; Enable_NLM = false; Enable_RQUOTA = false; }}
NFSV4 {{ {grace} }}
EXPORT_DEFAULTS {{ Protocols = {protocol}; SecType = sys; Squash = No_Root_Squash; Attr_Expiration_Time = 0; }}
EXPORT {{ Export_Id = 1; Path = {writable}; Pseudo = /rw; Access_Type = RW; FSAL {{ Name = VFS; }} }}
EXPORT {{ Export_Id = 2; Path = {read_only}; Pseudo = /ro; Access_Type = RO; FSAL {{ Name = VFS; }} }}
"""


class ServerInNamespace(Server):
    """A server of the machine's, with rpcbind on its real port, in a namespace of its own. `programs` are what it
    answers when it is ready: (program, version) pairs."""

    settings = {}  # of the block
    programs = ()

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
        raise NotImplementedError

    def _start_rpcbind(self):
        self._spawn("rpcbind", "-f", "-w")
        namespace.await_condition(lambda: self._answers(100000, 2), "rpcbind", self.processes[-1])

    def _spawn(self, *command):
        log = self.client.home / f"{command[0]}.log"
        self.processes.append(self.namespace.start(*map(str, command), log=log))

    def _await_programs(self):
        namespace.await_condition(
            lambda: all(self._answers(*program) for program in self.programs), self.name, self.processes[-1]
        )

    def _answers(self, program, version):
        """True when the program answers a NULL call over TCP on the port that rpcbind tells."""
        probe = subprocess.run(
            [*self.namespace.enter(), "rpcinfo", "-T", "tcp", "127.0.0.1", str(program), str(version)],
            capture_output=True,
            check=False,
            timeout=60,
        )
        return probe.returncode == 0

    def _registered(self):
        """What rpcbind knows: (program, port) pairs of TCP."""
        table = subprocess.run(
            [*self.namespace.enter(), "rpcinfo", "-p", "127.0.0.1"], capture_output=True, text=True, check=True
        ).stdout
        rows = [line.split() for line in table.splitlines()[1:]]
        return {(int(row[0]), int(row[3])) for row in rows if row[2] == "tcp"}

    def ports(self):
        return sorted({port for _, port in self._registered()})

    def nfs_port(self):
        return dict(self._registered())[100003]

    def block_through(self, port, **settings):
        return server_block(self.name, "127.0.0.1", self.exports, nfsport=port, **{**self.settings, **settings})

    def close(self):
        for process in reversed(self.processes):
            namespace.stop(process)
        self.namespace.close()

    @staticmethod
    def lacking(*tools):
        """The reason why no such server can run here, or None."""
        for tool in (*tools, "rpcbind", "rpcinfo"):
            if shutil.which(tool, path="/usr/sbin:/usr/bin:/sbin:/bin") is None:
                return f"{tool} is not installed"
        return namespace.why_impossible()


class Ganesha(ServerInNamespace):
    """nfs-ganesha on a memory file system."""

    name = "ganesha"
    protocol = 3
    grace = "Graceless = true;"
    programs = ((100003, 3), (100005, 3))
    command = ("ganesha.nfsd",)

    def _start(self, home, place):
        self._make_folders(home, place / "rw", place / "ro")
        configuration = self.client.home / "ganesha.conf"
        configuration.write_text(
            GANESHA_CONFIGURATION.format(
                protocol=self.protocol, grace=self.grace, writable=place / "rw", read_only=place / "ro"
            )
        )
        self._start_rpcbind()
        self.start_again()
        self.exports = self._exports(place)
        self.client.tslnfstab.write_text(server_block("ganesha", "127.0.0.1", self.exports, **self.settings))

    def _make_folders(self, home, writable, read_only):
        """In the namespace, with those that the server needs for itself; and the client there."""
        for directory in ("/run", "/var/lib/nfs", writable.parent):
            self.namespace.mount_tmpfs(str(directory))
        inside = self.namespace.seen_from_outside
        for directory in (writable, read_only, "/run/ganesha", "/var/lib/nfs/ganesha"):
            inside(directory).mkdir(parents=True)
        Server.__init__(self, home, inside(writable), inside(read_only))
        self.client.enter = self.namespace.enter()

    def _exports(self, place):
        return [(place / "rw", READ_WRITE), (place / "ro", READ_ONLY)]

    def start_again(self):
        configuration = self.client.home / "ganesha.conf"
        self._spawn(*self.command, "-F", "-L", "STDOUT", "-f", configuration, "-p", "/run/ganesha.pid")
        self._await_programs()

    def kill(self):
        process = self.processes.pop()
        process.kill()
        process.wait()

    @classmethod
    def why_impossible(cls):
        why = cls.lacking("ganesha.nfsd")
        if why is None and not list(pathlib.Path("/usr/lib").glob("*/ganesha/libfsalvfs.so")):
            return "nfs-ganesha-vfs is not installed"
        return why


class Ganesha4(Ganesha):
    """nfs-ganesha as a server that speaks NFSv4 only: no MOUNT, exports by their place below the server's root."""

    name = "ganesha4"
    protocol = 4
    programs = ((100003, 4),)
    settings = {"version": "nfsv4.1"}

    def _exports(self, place):
        return [("/rw", READ_WRITE), ("/ro", READ_ONLY)]


class Ganesha4WithGrace(Ganesha4):
    """The same with a grace period after a start, in which clients have back what they had open and nobody else opens
    anything. Shorter than a lease makes no sense, and shorter leases than these make tests slow machines' victims."""

    grace = "Lease_Lifetime = 10; Grace_Period = 12;"


class Linux(ServerInNamespace):
    """The kernel's own server on the file system of the tests. It is part of the machine, so it stops and starts but
    never crashes; what a client had open it gives back within the grace period."""

    name = "linux"
    without = ("4",)  # versions of NFS
    programs = ((100003, 3), (100005, 3))

    is_own = False  # what /proc/fs/nfsd shows is the server of this namespace, not the machine's

    def _start(self, home, place):
        self._mount()
        for folder in ("rw", "ro"):
            (place / folder).mkdir()
        Server.__init__(self, home, place / "rw", place / "ro")
        self.client.enter = self.namespace.enter()
        self.exports = [(place / "rw", READ_WRITE), (place / "ro", READ_ONLY)]
        self._start_rpcbind()
        for (export, _), access in zip(self.exports, ("rw", "ro"), strict=True):
            options = f"{access},insecure,no_root_squash,no_subtree_check"
            self.namespace.run("exportfs", "-o", options, f"127.0.0.1:{export}")
        self._spawn("nfsdcld", "-F")
        self._spawn("rpc.mountd", "-F", *self._without())
        self.start_again()
        self._await_end_of_grace()
        self.client.tslnfstab.write_text(server_block(self.name, "127.0.0.1", self.exports, **self.settings))

    def _mount(self):
        """What the server's daemons keep, and what the kernel shows them of this network."""
        inside = self.namespace.seen_from_outside
        for folder in ("/run", "/var/lib/nfs"):
            self.namespace.mount_tmpfs(folder)
        for folder in ("/run/rpc_pipefs", "/var/lib/nfs/nfsdcld"):
            inside(folder).mkdir()
        inside("/var/lib/nfs/etab").touch()
        self.namespace.run("mount", "-t", "rpc_pipefs", "rpc_pipefs", "/run/rpc_pipefs")
        self.namespace.run("mount", "-t", "nfsd", "nfsd", "/proc/fs/nfsd")
        self.is_own = True

    def _without(self):
        return [word for version in self.without for word in ("-N", version)]

    # While it lasts the client tells that it waits.
    def _await_end_of_grace(self):
        ended = self.namespace.seen_from_outside("/proc/fs/nfsd/v4_end_grace")
        namespace.await_condition(lambda: ended.read_text().startswith("Y"), "the end of grace", self.processes[-1])

    def start_again(self):
        self.namespace.run("rpc.nfsd", "-G", "10", "-L", "10", *self._without(), "4")
        self._await_programs()

    def kill(self):
        self.namespace.run("rpc.nfsd", "0")

    def close(self):
        if self.is_own:
            self.kill()
        super().close()

    @classmethod
    def why_impossible(cls):
        if "\tnfsd\n" not in pathlib.Path("/proc/filesystems").read_text():
            return "this kernel has no NFS server, or not loaded; see scripts/linux-server"
        return cls.lacking("rpc.nfsd", "rpc.mountd", "exportfs", "nfsdcld")


class Linux4(Linux):
    """The same as a server that speaks NFSv4 only: no MOUNT, exports by their whole path."""

    name = "linux4"
    without = ("3",)
    programs = ((100003, 4),)
    settings = {"version": "nfsv4.2"}

    def _start(self, home, place):
        # On the way to an export its clients pass the directories above it, as the users that they are.
        for folder in place.parents:
            folder.chmod(folder.stat().st_mode | 0o111)
        super()._start(home, place)


KINDS = {
    "loopnfsd": Loopnfsd,
    "ganesha": Ganesha,
    "ganesha4": Ganesha4,
    "tls4": Loopnfsd4ByTls,
    "loopnfsd4": Loopnfsd4,
    "linux": Linux,
    "linux4": Linux4,
}
# For the tests that do not say which kinds they are about.
USUAL = ("loopnfsd", "ganesha", "ganesha4", "tls4")
# Few machines have them: they take the same tests, but only when --servers names them.
ON_REQUEST = ("linux", "linux4")
