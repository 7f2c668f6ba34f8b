"""A TCP relay that a test holds in its hands: it lets so many bytes through and then waits; it resets connections.

Run as a program, with the target's port, it prints its own and obeys one command a line: "allow BYTES" lets more through
and is answered with "held" once they are used up, "reset" resets every connection, "flip BYTES" changes one byte of what
the target sends after so many more of them.
"""

import asyncio
import contextlib
import pathlib
import select
import socket
import struct
import subprocess
import sys

import namespace

CHUNK = 1 << 16


class Relay:
    """The test's side of a relay. `enter` is the command line that takes it to where the target is reachable."""

    def __init__(self, target, enter=()):
        self.process = subprocess.Popen(
            [*enter, "/usr/bin/python3", pathlib.Path(__file__), str(target)],
            stdin=subprocess.PIPE,
            stdout=subprocess.PIPE,
            preexec_fn=namespace.die_with_parent,
            text=True,
        )
        self.port = int(self.process.stdout.readline())

    def _tell(self, command):
        self.process.stdin.write(f"{command}\n")
        self.process.stdin.flush()

    def pass_bytes(self, count, process):
        """Lets so many more bytes of a running command through, both ways together, and returns when they have
        passed. The command must have more to send or receive."""
        self._tell(f"allow {count}")
        namespace.await_condition(self._held, f"{count} bytes to pass", process)

    def _held(self):
        ready, _, _ = select.select([self.process.stdout], [], [], 0)
        return bool(ready) and self.process.stdout.readline() == "held\n"

    def open(self):
        """Lets everything through from now on."""
        self._tell(f"allow {1 << 60}")

    def reset(self):
        self._tell("reset")

    def flip(self, distance):
        """Changes one byte of what the target sends, after so many more."""
        self._tell(f"flip {distance}")

    def close(self):
        self.process.stdin.close()
        namespace.stop(self.process)
        self.process.stdout.close()


class Line:
    """The relay's own side: its connections, and how many bytes may still pass."""

    def __init__(self, target):
        self.target = target
        self.left = 0
        self.gate = asyncio.Event()
        self.writers = set()
        self.until_flip = None

    def allow(self, count):
        self.left += count
        self.gate.set()

    def spend(self, count):
        self.left -= count
        if self.left == 0:
            self.gate.clear()
            print("held", flush=True)

    def reset(self):
        for writer in self.writers:
            # Lingering for no time makes close() send a reset.
            linger = struct.pack("ii", 1, 0)
            writer.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger)
            writer.transport.abort()

    def flipped(self, data):
        """Bytes of the target, with the one changed whose turn it is."""
        if self.until_flip is None:
            return data
        place = self.until_flip
        self.until_flip = place - len(data) if place >= len(data) else None
        if self.until_flip is not None:
            return data
        return data[:place] + bytes([data[place] ^ 0x10]) + data[place + 1 :]

    async def pump(self, reader, writer, change=lambda data: data):
        while data := await reader.read(CHUNK):
            data = change(data)
            while data:
                while self.left == 0:
                    await self.gate.wait()
                part, data = data[: self.left], data[self.left :]
                self.spend(len(part))
                writer.write(part)
                await writer.drain()

    async def connect(self, reader, writer):
        """Joins a client's connection to one of its own, until either end is gone."""
        joined = {writer}
        with contextlib.suppress(OSError):
            upstream, upstream_writer = await asyncio.open_connection("127.0.0.1", self.target)
            joined.add(upstream_writer)
            self.writers |= joined
            pumps = [self.pump(reader, upstream_writer), self.pump(upstream, writer, self.flipped)]
            tasks = [asyncio.ensure_future(pump) for pump in pumps]
            await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
            for task in tasks:
                task.cancel()
            await asyncio.gather(*tasks, return_exceptions=True)
        self.writers -= joined
        for each in joined:
            each.transport.abort()


async def serve(target):
    line = Line(target)
    server = await asyncio.start_server(line.connect, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    commands = asyncio.StreamReader()
    loop = asyncio.get_running_loop()
    await loop.connect_read_pipe(lambda: asyncio.StreamReaderProtocol(commands), sys.stdin)
    while command := (await commands.readline()).split():
        if command[0] == b"allow":
            line.allow(int(command[1]))
        elif command[0] == b"flip":
            line.until_flip = int(command[1])
        else:
            line.reset()


if __name__ == "__main__":
    asyncio.run(serve(int(sys.argv[1])))
