"""What goes over the wire, read by a program that knows the protocol and not us."""

import re
import shutil
import subprocess

import pytest
from files import digest, make_file
from namespace import await_condition, die_with_parent, stop

SIZE = 3_000_000


@pytest.fixture
def capture(server, tmp_path):
    """A capture of what the server hears and says while the test runs; other tests have servers of their own."""
    if shutil.which("tshark") is None:
        pytest.skip("tshark is not installed")
    packets = tmp_path / "packets.pcapng"
    packets.touch()
    packets.chmod(0o666)  # the capturing program may have dropped its privileges
    ports = server.ports()
    wanted = " or ".join(f"tcp port {port}" for port in ports)
    command = ["tshark", "-i", "lo", "-f", wanted, "-B", "64", "-w", packets]
    process = subprocess.Popen(
        [*server.client.enter, *map(str, command)],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.PIPE,
        text=True,
        preexec_fn=die_with_parent,
    )
    heard = ""
    for line in process.stderr:
        heard += line
        if "Capturing on" in line:
            break
    else:
        pytest.skip(f"no capture is possible here: {heard.strip()}")
    await_condition(lambda: packets.stat().st_size > 0, "the capture", process)
    yield Capture(packets, ports)
    stop(process)
    process.stderr.close()


class Capture:
    def __init__(self, packets, ports):
        self.packets = packets
        self.decode = [word for port in ports for word in ("-d", f"tcp.port=={port},rpc")]

    def matching(self, display_filter):
        """The packets of the capture that a display filter lets through, a line each."""
        command = ["tshark", "-r", self.packets, *self.decode, "-Y", display_filter]
        done = subprocess.run(command, capture_output=True, text=True, check=False, timeout=300)
        # A capture that is still being written may end inside a packet: status 2, and what came before is good.
        assert done.returncode in (0, 2), done.stderr
        return done.stdout.splitlines()


CALL, REPLY = 0, 1


def sent(what, direction):
    """A display filter: the calls or replies with a procedure of version 3 or an operation of version 4."""
    procedure, operation = {
        "READ": (6, 25),
        "WRITE": (7, 38),
        "CREATE": (8, 18),
        "COMMIT": (21, 5),
        "READDIR": (16, 26),
        "READDIRPLUS": (17, 26),
    }[what]
    return f"(nfs.procedure_v3 == {procedure} || nfs.opcode == {operation}) && rpc.msgtyp == {direction}"


# What goes by TLS is looked at in test_tls.py.
@pytest.mark.kinds("loopnfsd", "ganesha", "ganesha4", "loopnfsd4")
def test_a_session_holds_no_malformed_packet(server, place, capture, tmp_path):
    source, back = make_file(tmp_path / "source", SIZE), tmp_path / "back"
    server.ok("cp", source, place / "f")
    server.ok("ls", "-l", place.remote)
    server.ok("cp", place / "f", back)
    assert digest(back) == digest(source)

    # On a busy machine a capture may miss a packet, and then cannot follow the rest of that connection: read once more.
    def has_read_replies():
        found = capture.matching(sent("READ", REPLY))
        if not found:
            server.ok("cat", place / "f")
        return found

    await_condition(has_read_replies, "READ replies")
    calls = {name: len(capture.matching(sent(name, CALL))) for name in ("READ", "WRITE", "CREATE", "COMMIT")}
    assert all(calls.values()), calls
    listings = capture.matching(sent("READDIR", CALL)) + capture.matching(sent("READDIRPLUS", CALL))
    assert listings
    assert capture.matching("_ws.malformed") == []
    assert not [line for line in capture.matching("rpc") if re.search("Malformed|error in opaque", line)]
