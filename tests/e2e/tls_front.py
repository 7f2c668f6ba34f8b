"""A program that puts TLS in front of a server that has none: it answers the question for TLS, and hands what comes by
TLS on to the server in plain. It chooses no application protocol, as servers may.

Run with the target's port, a certificate and its key; it prints its own port. With "cut COUNT" behind them it closes the
first connections when the client's first word of TLS has come; with "alpn NAME" it chooses that protocol, whatever was
offered; with "shy" it has no TLS, and closes connections that ask for it. With "crumbs COUNT" the first bytes go to the
client in a record each; with "rekey yes" both sides change their keys with every piece that goes to the client.
"""

import asyncio
import contextlib
import ctypes
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


def asks_for_tls(call):
    (flavour,) = struct.unpack_from(">I", call, 24)
    return flavour == 7


def choose_protocol(context, name):
    """What no server should do, and the ssl module does not let one do."""
    select = ctypes.CFUNCTYPE(
        ctypes.c_int,
        *(ctypes.c_void_p, ctypes.POINTER(ctypes.c_char_p), ctypes.POINTER(ctypes.c_ubyte)),
        *(ctypes.c_void_p, ctypes.c_uint, ctypes.c_void_p),
    )

    def choose(_ssl, chosen, size, *_offered):
        chosen[0] = name
        size[0] = len(name)
        return 0

    context.chooser = select(choose)  # lives as long as the context
    behind_object_head = id(context) + object.__basicsize__
    handle = ctypes.c_void_p.from_address(behind_object_head)
    library = ctypes.CDLL("libssl.so.3")
    library.SSL_CTX_set_alpn_select_cb(handle, context.chooser, None)


class Context(ssl.SSLContext):
    """Has room for attributes."""


def renew_keys(writer):
    """What the ssl module does not let one do: KeyUpdate, update_requested (RFC 8446 section 4.6.3)."""
    connection = writer.get_extra_info("ssl_object")._sslobj
    behind_head_and_socket = id(connection) + object.__basicsize__ + ctypes.sizeof(ctypes.c_void_p)
    handle = ctypes.c_void_p.from_address(behind_head_and_socket)
    requested = 1
    if ctypes.CDLL("libssl.so.3").SSL_key_update(handle, requested) != 1:
        raise OSError("the keys cannot be renewed")


async def pump(reader, writer, crumbs=0, rekey=False):
    while data := await reader.read(1 << 16):
        for byte in data[:crumbs]:
            writer.write(bytes([byte]))
        if rekey:
            renew_keys(writer)
        if data[crumbs:]:
            writer.write(data[crumbs:])
        crumbs -= min(crumbs, len(data))
        await writer.drain()


class Door:
    def __init__(self, target, certificate, key, cut="0", alpn="", shy=False, crumbs="0", rekey=""):
        self.target = target
        self.cuts = int(cut)
        self.shy = shy
        self.to_client = {"crumbs": int(crumbs), "rekey": bool(rekey)}
        self.context = Context(ssl.PROTOCOL_TLS_SERVER)
        self.context.load_cert_chain(certificate, key)
        if alpn:
            choose_protocol(self.context, alpn.encode())

    async def serve(self, reader, writer):
        with contextlib.suppress(OSError, asyncio.IncompleteReadError):
            call = await read_record(reader)
            if self.shy:
                if not asks_for_tls(call):
                    await self.hand_on(reader, writer, struct.pack(">I", LAST | len(call)) + call)
                writer.transport.abort()
                return
            writer.write(starttls_reply(call))
            if self.cuts > 0:
                self.cuts -= 1
                await reader.read(1)
                writer.transport.abort()
                return
            await writer.start_tls(self.context)
            await self.hand_on(reader, writer)
        writer.transport.abort()

    async def hand_on(self, reader, writer, first=b""):
        upstream, upstream_writer = await asyncio.open_connection("127.0.0.1", self.target)
        upstream_writer.write(first)
        ways = (pump(reader, upstream_writer), pump(upstream, writer, **({} if self.shy else self.to_client)))
        tasks = [asyncio.ensure_future(each) for each in ways]
        await asyncio.wait(tasks, return_when=asyncio.FIRST_COMPLETED)
        for task in tasks:
            task.cancel()
        await asyncio.gather(*tasks, return_exceptions=True)
        upstream_writer.transport.abort()


async def main(target, certificate, key, *words):
    settings = {"shy": True} if words == ("shy",) else dict(zip(words[::2], words[1::2], strict=True))
    door = Door(target, certificate, key, **settings)
    server = await asyncio.start_server(door.serve, "127.0.0.1", 0)
    print(server.sockets[0].getsockname()[1], flush=True)
    await server.serve_forever()


if __name__ == "__main__":
    port, certificate, key, *rest = sys.argv[1:]
    asyncio.run(main(int(port), certificate, key, *rest))
