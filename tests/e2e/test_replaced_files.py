"""A file that another client replaces while it is copied: nothing of the new file gets into the copy, and a move keeps
its source. The file system gives the freed file number out again at once, so only the handle tells the two apart."""

import os
import signal

from client import finish
from files import content
from namespace import await_condition

SIZE = 128 << 20  # many times what is read ahead
OLD = content(SIZE)
NEW = os.urandom(1 << 16) * (SIZE >> 16)


class Replaced:
    """A transfer of a remote file to a local one, which stands still while another client replaces its source."""

    def __init__(self, server, place, tmp_path, command):
        self.source, self.destination = place.files / "f", tmp_path / "copy"
        self.source.write_bytes(OLD)
        (tmp_path / "new").write_bytes(NEW)
        process = server.client.start(command, place / "f", self.destination, env={"TSLWNFS_TERMINAL": "always"})
        await_condition(self.has_begun, "the copy to begin", process)
        process.send_signal(signal.SIGSTOP)
        try:
            assert self.destination.stat().st_size < SIZE, "it was faster than the test"
            server.client.ok("rm", place / "f")
            server.client.ok("cp", tmp_path / "new", place / "f")
        finally:
            process.send_signal(signal.SIGCONT)
        self.run = finish(process)

    def has_begun(self):
        return self.destination.exists() and self.destination.stat().st_size > 0

    def copied(self):
        return self.destination.read_bytes()


def test_a_file_that_is_replaced_while_it_is_copied_is_not_mixed_with_the_new_one(server, place, tmp_path):
    copy = Replaced(server, place, tmp_path, "cp")
    assert OLD.startswith(copy.copied())
    # A server may keep a removed file for those who read it.
    assert (copy.run.status, b"stale handle" in copy.run.err) == (1, True) or copy.copied() == OLD, copy.run


def test_a_file_that_is_replaced_while_it_is_moved_is_kept(server, place, tmp_path):
    move = Replaced(server, place, tmp_path, "mv")
    assert move.run.status == 1
    assert OLD.startswith(move.copied())
    assert move.source.read_bytes() == NEW
