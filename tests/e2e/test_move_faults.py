"""move, when its server dies, fills up or turns read-only half-way: at every moment one of the two places holds the
whole file, and a move that failed has left the source or the destination whole. What counts is what is on the server's
disk: it keeps uncommitted data to itself and loses it when it is killed."""

import os

import pytest
from client import finish
from files import content, make_file
from texts import SUCCEEDED

SIZE = 5_000_001
DATA = content(SIZE)


class Move:
    """A move up, down or across, with the real places of its two files."""

    def __init__(self, server, tmp_path, direction):
        remote = {"source": server / "one", "destination": server / "two"}
        files = {"source": server.files / "one", "destination": server.files / "two"}
        if direction == "up":
            remote["source"] = files["source"] = tmp_path / "one"
        if direction == "down":
            remote["destination"] = files["destination"] = tmp_path / "two"
        self.words = ["mv", remote["source"], remote["destination"]]
        self.source, self.destination = make_file(files["source"], SIZE), files["destination"]
        self.old_tail = b""

    def lengthen_destination(self):
        """A destination that is longer is cut to its new size last, when every byte of the source is in it."""
        self.old_tail = make_file(self.destination, SIZE + 100).read_bytes()[SIZE:]

    def whole(self):
        """Which of the two hold every byte."""
        ends = (DATA, DATA + self.old_tail)
        return [path.name for path in (self.source, self.destination) if path.exists() and path.read_bytes() in ends]


@pytest.fixture(params=["up", "down", "across"])
def direction(request):
    return request.param


# The call at which a move stands still: while data goes over, before it is durable, before the source is deleted,
# before the destination gets its size.
MOMENTS = [
    ("up", "WRITE"),
    ("up", "COMMIT"),
    ("up", "SETATTR"),
    ("down", "READ"),
    ("down", "REMOVE"),
    ("across", "WRITE"),
    ("across", "COMMIT"),
    ("across", "REMOVE"),
    ("across", "SETATTR"),
]


@pytest.fixture(params=MOMENTS, ids=" at ".join)
def stand_still(request, faulty, tmp_path):
    """Starts a move that stands still at one call. Gives it, its server and its process."""

    def start(**settings):
        direction, procedure = request.param
        server = faulty("--max-read", "64K", "--max-write", "64K", **settings)
        move = Move(server, tmp_path, direction)
        if procedure == "SETATTR":
            move.lengthen_destination()
        server.fault(f"status={procedure}:JUKEBOX:*:{20 if procedure in ('READ', 'WRITE') else 0}")
        process = server.start(*move.words)
        server.await_count("fault.status", 1, process)
        return move, server, process

    return start


def test_a_move_survives_a_server_that_is_killed_at(stand_still):
    move, server, process = stand_still()
    server.kill()
    assert move.whole()
    server.start_again()
    run = finish(process)
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert (move.whole(), move.source.exists()) == (["two"], False)
    assert move.destination.stat().st_size == SIZE


def test_a_move_fails_and_loses_nothing_when_the_server_stays_dead_at(stand_still):
    move, server, process = stand_still(io_timeout=2)
    server.kill()
    assert finish(process).status == 1
    assert move.whole()
    server.start_again()


@pytest.mark.parametrize("reason", ["ROFS", "NOSPC", "IO", "ACCES"])
def test_a_move_fails_and_loses_nothing_when_the_server_refuses_to_go_on_at(stand_still, reason):
    move, server, process = stand_still()
    server.fault(f"status=*:{reason}:*")
    assert finish(process).status == 1
    assert move.whole()


@pytest.mark.parametrize("direction", ["up", "across"])
def test_a_move_to_a_full_disk_keeps_its_source(faulty, tmp_path, direction):
    server = faulty("--fault", "capacity=2M")
    move = Move(server, tmp_path, direction)
    assert server.run(*move.words).status == 1
    assert move.whole() == ["one"]


def test_a_move_keeps_its_source_when_the_export_turns_read_only(stand_still):
    move, server, process = stand_still()
    server.fault("read-only")
    server.tell("clear status")
    run = finish(process)
    whole = move.whole()
    assert whole
    # Only what reads alone can still be done; nothing that failed may look like a success.
    assert run.status == 1 or whole == ["two"]


def append(path):
    with open(path, "ab") as file:
        file.write(b"more")


def replace(path):
    new = path.with_name("new")
    new.write_bytes(b"another file")
    new.rename(path)


# A call that a move makes while it still copies.
COPYING = pytest.mark.parametrize("direction, procedure", [("up", "COMMIT"), ("down", "READ"), ("across", "COMMIT")])


@COPYING
@pytest.mark.parametrize("change", [append, replace])
def test_a_source_that_is_changed_while_it_is_moved_is_kept(faulty, tmp_path, direction, procedure, change):
    server = faulty()
    move = Move(server, tmp_path, direction)
    server.fault(f"status={procedure}:JUKEBOX:*")
    process = server.start(*move.words)
    server.await_count("fault.status", 1, process)
    change(move.source)
    changed = move.source.read_bytes()
    server.tell("clear status")
    assert finish(process).status == 1
    assert move.source.read_bytes() == changed


@pytest.mark.parametrize("direction", ["up", "across"])
@pytest.mark.parametrize("lose", ["rename", "replace", "cut"])
def test_a_source_is_kept_when_the_destination_is_lost_behind_the_servers_back(faulty, tmp_path, direction, lose):
    server = faulty()
    move = Move(server, tmp_path, direction)
    # For as long as it takes to have the look at the destination wait, too: three seconds.
    server.fault("status=COMMIT:JUKEBOX:5" if lose == "cut" else "status=COMMIT:JUKEBOX:*")
    process = server.start(*move.words)
    server.await_count("fault.status", 1, process)
    if lose == "rename":
        move.destination.rename(move.destination.with_name("elsewhere"))
    elif lose == "replace":
        replace(move.destination)
    else:
        server.fault("status=LOOKUP:JUKEBOX:*")
        server.await_count("LOOKUP", server.count("LOOKUP") + 1, process)
        os.truncate(move.destination, 1)
    server.tell("clear status")
    assert finish(process).status == 1
    assert move.source.read_bytes() == DATA


@pytest.mark.parametrize("lost", ["REMOVE", "COMMIT", "WRITE", "SETATTR", "CREATE"])
def test_a_move_whose_replies_are_lost_is_done_once(faulty, tmp_path, direction, lost):
    server = faulty("--max-write", "64K", "--max-read", "64K")
    move = Move(server, tmp_path, direction)
    server.fault(f"drop-reply={lost}:1")
    run = server.run(*move.words)
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert (move.whole(), move.source.exists()) == (["two"], False)


def test_a_move_down_to_a_full_disk_keeps_its_source(faulty, tmp_path):
    """The local disk: no file on it may grow beyond half of the source."""
    server = faulty()
    source = make_file(server.files / "one", SIZE)
    limited = f'trap "" XFSZ; ulimit -f {SIZE // 2048}; exec "$@"'
    program = [server.client.home / "bin" / "tslwnfs", "mv", server / "one", tmp_path / "one"]
    assert server.client.run("-c", limited, "bash", *program, program="/bin/bash").status == 1
    assert source.read_bytes() == DATA
