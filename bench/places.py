"""The servers that are measured, each in a network namespace of its own, and the distance to them."""

import contextlib
import pathlib
import subprocess

import client
import namespace
import servers

# Whatever the machine's own default is: one that paces what it sends, as BBR does, measures its timers on loopback.
CONGESTION_CONTROL = "reno"
CONGESTION_SETTING = "/proc/sys/net/ipv4/tcp_congestion_control"

MOUNT = "/wnfs-bench"
MOUNT4 = "/wnfs-bench4"  # the same export in NFSv4.1
EXPORT4 = "/rw"  # its place below the server's root there

ROUND_TRIPS_MS = (0, 1, 10)


def default_congestion_control():
    return pathlib.Path(CONGESTION_SETTING).read_text().strip()


def set_congestion_control(place, name):
    """For the connections that are made in a namespace from now on."""
    place.run("sh", "-c", f'echo "$1" > {CONGESTION_SETTING}', "sh", name)


def utility(of, *words):
    """The words that run the utility as this client."""
    return [*of.enter, of.home / "bin" / "tslwnfs", *words]


class Ganesha(servers.Ganesha):
    """The server of the end-to-end tests in both versions, on a memory file system."""

    protocol = "3, 4"
    programs = ((100003, 3), (100003, 4), (100005, 3))

    def __init__(self, bench):
        place = bench.unused("exports")
        self.export = place / "rw"
        super().__init__(bench.new_home(), place)
        set_congestion_control(self.namespace, CONGESTION_CONTROL)

    def port_of(self, program):
        return dict(self._registered())[program]


class GaneshaThatKeepsMemory(Ganesha):
    """As above, but that the C library gives no memory back to the system between two answers."""

    TUNABLES = "glibc.malloc.mmap_threshold=33554432:glibc.malloc.trim_threshold=1073741824"
    command = ("env", f"GLIBC_TUNABLES={TUNABLES}", *Ganesha.command)


class Relay:
    """Ports of 127.0.0.1 behind which a server's ports lie at a distance."""

    def __init__(self, program, enter, waiting, round_trip_ms, ports):
        command = [*enter, program, waiting, str(int(round_trip_ms * 1000)), *map(str, ports)]
        self.process = subprocess.Popen(command, stdout=subprocess.PIPE, preexec_fn=namespace.die_with_parent)
        self.ports = [int(word) for word in self.process.stdout.readline().split()]

    def close(self):
        namespace.stop(self.process)
        self.process.stdout.close()


class Distance:
    """nfs-ganesha at a round trip: the client's mounts and the peer's URL of it."""

    def __init__(self, bench, ganesha, round_trip_ms, waiting):
        self.client = ganesha.client
        self.export = ganesha.export
        ports = [ganesha.port_of(100003), ganesha.port_of(100005)]
        self.relay = None
        if round_trip_ms:
            self.relay = Relay(bench.program("relay"), ganesha.client.enter, waiting, round_trip_ms, ports)
            ports = self.relay.ports
        self.nfs_port, self.mount_port = ports
        self._configure()

    def _configure(self):
        settings = {"nfsport": self.nfs_port, "mountport": self.mount_port}
        blocks = servers.server_block("bench", "127.0.0.1", [(self.export, MOUNT)], **settings)
        settings = {"nfsport": self.nfs_port, "version": "nfsv4.1"}
        blocks += servers.server_block("bench4", "127.0.0.1", [(EXPORT4, MOUNT4)], **settings)
        self.client.tslnfstab.write_text(blocks)

    def close(self):
        if self.relay:
            self.relay.close()

    def ours(self, *words):
        return utility(self.client, *words)

    def theirs(self, *words):
        return [*self.client.enter, *words]

    def url(self, name, version=3):
        """A file of the export, for the peers."""
        export = self.export if version == 3 else EXPORT4
        query = f"version={version}&nfsport={self.nfs_port}&mountport={self.mount_port}"
        return f"nfs://127.0.0.1{export}/{name}?{query}"


def at_distance(bench, ganesha, round_trip_ms=0, waiting="requests"):
    """Puts the server at a round trip. waiting: "requests" or "replies", the small ones of what is transferred."""
    return contextlib.closing(Distance(bench, ganesha, round_trip_ms, waiting))


class Loopback:
    """A namespace in which loopnfsd runs, and a client in it."""

    def __init__(self, bench):
        self.namespace = namespace.Namespace()
        set_congestion_control(self.namespace, CONGESTION_CONTROL)
        self.client = client.Client(bench.new_home(), self.namespace.enter())
        self.servers = []

    def start(self, *words):
        """Starts a loopnfsd and gives it."""
        enter = self.namespace.enter(mounts=True)
        self.servers.append(servers.LoopnfsdProcess(self.client.home, *words, enter=enter))
        return self.servers[-1]

    def close(self):
        for server in self.servers:
            server.close()
        self.namespace.close()
