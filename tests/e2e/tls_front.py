"""A program that puts TLS in front of a server that has none: it answers the question for TLS, and hands what comes by
TLS on to the server in plain. It chooses no application protocol, as servers may.

Run with the target's port, a certificate and its key; it prints its own port. With "cut COUNT" behind them it closes the
first connections when the client's first word of TLS has come.
"""

import asyncio
import contextlib
import pathlib
import ssl
import struct
import subprocess
import sys

import namespace

LAST = 0x80000000
STARTTLS = b"STARTTLS"


class Front:
    """The test's side of it. `enter` is the command line that takes it to where the target is reachable."""

    def __init__(self, target, signed, *words, enter=()):
        self.process = subprocess.Popen(
            [*enter, "/usr/bin/python3", pathlib.Path(__file__), str(target), signed.certificate, signed.key, *words],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            preexec_fn=namespace.die_with_parent,
            text=True,
        )
        self.port = int(self.process.stdout.readline())

    def close(self):
        namespace.stop(self.process)
        self.process.stdout.close()


async def read_record(reader):
    (mark,) = struct.unpack(">I", await reader.readexactly(4))
    return await reader.readexactly(mark & ~LAST)


def starttls_reply(call):
    (xid,) = struct.unpack_from(">I", call)
    body = struct.pack(">IIIII8sI", xid, 1, 0, 0, len(STARTTLS), STARTTLS, 0)
    return struct.pack(">I", LAST | len(body)) + body


async def pump(reader, writer):
    while data := await reader.read(1 << 16):
        writer.write(data)
        await writer.drain()


class Door:
    def __init__(self, target, certificate, key, cuts):
        self.target = target
        self.cuts = cuts
        self.context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(certificate, key)

    async def serve(self, reader, writer):
        with contextlib.suppress(OSError, asyncio.IncompleteReadError):
            writer.write(starttls_reply(await read_record(reader)))
            if self.cuts > 0:
                self.cuts -= 1
                await reader.read(1)
                writer.transport.abort()
                return
            await writer.start_tls(self.context)
            upstream, upstream_writer = await asyncio.open_connection("127.0.0.1", self.target)
            tasks = [asyncio.ensure_future(each) for each in (pump(reader, upstream_writer), pump(upstream, writer))]
            await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
            for task in tasks:
                task.cancel()
            await asyncio.gather(*tasks, return_exceptions=True)
            upstream_writer.transport.abort()
        writer.transport.abort()


async def main(target, certificate, key, cuts=0):
    door = Door(target, certificate, key, cuts)
    server = await asyncio.start_server(door.serve, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


if __name__ == "__main__":
    port, certificate, key, *rest = sys.argv[1:]
    asyncio.run(main(int(port), certificate, key, *(int(word) for word in rest if word != "cut")))
