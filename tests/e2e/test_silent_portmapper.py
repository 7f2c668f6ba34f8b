"""A portmapper, or a MOUNT program, behind a filter that drops what is sent to it, in front of servers of either
version."""

import pathlib
import subprocess
import sys

import pytest

import client
import namespace
import servers
from texts import SUCCEEDED

HELD_PORT = pathlib.Path(__file__).parent / "held_port.py"
PORTMAP = 1111
MOUNT = "/wnfs-silent"


class Host:
    """A network with a held port 111 and loopnfsd on port 2049, whose own portmapper is on another port."""

    def __init__(self, home, folder):
        self.network = namespace.Namespace()
        self.home, self.folder = home, folder
        self.client = client.Client(home, self.network.enter())
        self.served = folder / "served"
        self.served.mkdir()
        (self.served / "f").write_bytes(b"content\n")
        self.open = folder / "open"
        self.trace = folder / "trace"
        self.processes = [
            self.network.start(
                sys.executable, HELD_PORT, "111", str(PORTMAP), str(self.open), log=folder / "held.log"
            )
        ]
        self._await_text(folder / "held.log", "held")

    def _await_text(self, log, text):
        namespace.await_condition(lambda: text in log.read_text(), text, self.processes[-1])

    def serve(self, versions, **settings):
        log = self.folder / "loopnfsd.log"
        portmap = ["--portmap", str(PORTMAP)] if "3" in versions else []
        words = ["--no-sync", "--port", "2049", "--versions", versions, *portmap, "--verbose", str(self.served)]
        self.processes.append(self.network.start(str(self.home / "bin" / "loopnfsd"), *words, log=log))
        self._await_text(log, "listening on")
        self.client.tslnfstab.write_text(
            servers.server_block("silent", "127.0.0.1", [("/export", MOUNT)], **settings)
        )

    def cat(self):
        return self.client.start("-trace", self.trace, "-level", "1", "1", "1", "1", "cat", f"{MOUNT}/f")

    def close(self):
        for process in self.processes:
            namespace.stop(process)
        self.network.close()


@pytest.fixture
def host(installed_home, tmp_path):
    why = namespace.why_impossible()
    if why:
        pytest.skip(why)
    made = Host(client.copy_of_home(installed_home, tmp_path / "home"), tmp_path)
    yield made
    made.close()


SILENT_PORTMAPPER = {}
SILENT_MOUNT = {"mountport": 111, "nfsport": 2049}
silent = pytest.mark.parametrize("silent", [SILENT_PORTMAPPER, SILENT_MOUNT], ids=["portmapper", "mount"])


@silent
def test_a_server_of_version_4_alone_is_asked_in_that(host, silent):
    host.serve("4", mnt_timeout=20, **silent)
    run = client.finish(host.cat())
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert b"content\n" in run.out
    trace = host.trace.read_text()
    assert "export /export: attached with NFSv4." in trace
    assert trace.index("it offers NFSv4 only") < trace.index("attached with NFSv4.")


@silent
def test_a_server_that_offers_version_3_is_never_taken_for_one_of_version_4_alone(host, silent):
    host.serve("3,4", mnt_timeout=4, **silent)
    run = client.finish(host.cat())
    assert run.status == 1
    trace = host.trace.read_text()
    asked = "MNT" if silent else "portmapper GETPORT"
    assert f"{asked}: no answer within 4 seconds" in trace
    assert "NFSv4" not in trace


def test_showmount_tells_what_leads_to_the_exports_in_the_time_that_it_has(host):
    host.serve("4", mnt_timeout=3)
    run = host.client.run("showmount", "127.0.0.1", env={"TSLWNFS_TERMINAL": "reasons"})
    assert run.status == 1
    assert b"no answer within 3 seconds" in run.err
    assert b"the server's root holds: /export\n" in run.err


@pytest.mark.slow
def test_a_portmapper_that_turns_up_is_asked(host):
    host.serve("3,4")
    process = host.cat()
    log = host.folder / "loopnfsd.log"
    namespace.await_condition(lambda: "NULL" in log.read_text(), "a look at port 2049", process)
    host.open.touch()
    run = client.finish(process)
    assert run.status == 0
    assert b"content\n" in run.out
    assert "NFSv4" not in host.trace.read_text()
