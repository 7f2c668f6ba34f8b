"""An NFSv4 server that others wrote is killed and started again with its grace period, in the middle of transfers."""

import pytest

import client
import namespace
import servers

SIZE = 384 << 20


@pytest.fixture
def nas(installed_home, tmp_path):
    why = servers.Ganesha4WithGrace.why_impossible()
    if why:
        pytest.skip(why)
    server = servers.Ganesha4WithGrace(client.copy_of_home(installed_home, tmp_path / "home"), tmp_path / "exports")
    yield server
    server.close()


@pytest.fixture
def content(chance):
    return chance.randbytes(1 << 20) * (SIZE >> 20)


def kill_in_the_middle(nas, process, copy):
    """Kills the server once some of the copy is there, and starts it again."""
    namespace.await_condition(lambda: copy.exists() and copy.stat().st_size > SIZE // 16, "some of the copy", process)
    nas.kill()
    assert process.poll() is None, "the transfer was over before the server was killed"
    nas.start_again()
    out, err = process.communicate(timeout=client.HANG)
    assert (process.returncode, err) == (0, b""), (out, err)


@pytest.mark.slow
@pytest.mark.parametrize("direction", ["up", "down"])
def test_a_transfer_outlives_a_restart_with_grace(nas, content, tmp_path, direction):
    local, remote = tmp_path / "local", nas.writable / "remote"
    source, copy = (local, remote) if direction == "up" else (remote, local)
    source.write_bytes(content)
    paths = {local: local, remote: f"{servers.READ_WRITE}/remote"}
    trace = tmp_path / "trace"
    process = nas.client.start("-trace", trace, "-level", "1", "1", "1", "1", "cp", paths[source], paths[copy])
    kill_in_the_middle(nas, process, copy)
    assert copy.read_bytes() == content
    assert "the session is lost, making another" in trace.read_text()
