"""A TCP port that is as silent as behind a filter: connections are not even taken, as its queue is full. Once a file
appears, they are, and what comes in is passed on to another port.

    held_port.py HELD_PORT OTHER_PORT FILE
"""

import os
import selectors
import socket
import sys
import time


def fill(listener):
    """Holds connections that nobody accepts, until the system answers no further request to connect."""
    held = []
    for _ in range(8):
        caller = socket.socket()
        caller.setblocking(False)
        caller.connect_ex(listener.getsockname())
        held.append(caller)
    return held


def pass_on(listener, port):
    watched = selectors.DefaultSelector()
    watched.register(listener, selectors.EVENT_READ)
    others = {}
    while True:
        for key, _ in watched.select():
            if key.fileobj is listener:
                near, far = listener.accept()[0], socket.create_connection(("127.0.0.1", port))
                others.update({near: far, far: near})
                watched.register(near, selectors.EVENT_READ)
                watched.register(far, selectors.EVENT_READ)
                continue
            data = key.fileobj.recv(65536)
            if data:
                others[key.fileobj].sendall(data)
                continue
            watched.unregister(key.fileobj)
            others[key.fileobj].shutdown(socket.SHUT_WR)


def main(held_port, other_port, until):
    listener = socket.socket()
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", int(held_port)))
    listener.listen(0)
    held = fill(listener)
    print("held", flush=True)
    while not os.path.exists(until):
        time.sleep(0.02)
    for caller in held:
        caller.close()
    listener.listen(64)
    pass_on(listener, int(other_port))


if __name__ == "__main__":
    main(*sys.argv[1:])
