"""The same bytes over one bare TCP connection of loopback: the limit that no client can beat.

usage: bare_tcp.py send FILE       prints a port and sends the file to whoever connects, until it is ended
       bare_tcp.py receive PORT    receives and drops
"""

import socket
import sys


def send(path):
    listener = socket.create_server(("127.0.0.1", 0))
    print(listener.getsockname()[1], flush=True)
    while True:
        connection, _ = listener.accept()
        with connection, open(path, "rb") as source:
            connection.sendfile(source)


def receive(port):
    buffer = bytearray(1 << 20)
    with socket.create_connection(("127.0.0.1", int(port))) as connection:
        while connection.recv_into(buffer):
            pass


if __name__ == "__main__":
    {"send": send, "receive": receive}[sys.argv[1]](sys.argv[2])
