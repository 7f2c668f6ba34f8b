"""A server that is killed and started again: the transfer goes on where it was, and nothing of it is lost.

loopnfsd keeps uncommitted data to itself, so that killing it loses that data and changes its write verifier.
"""

import pytest
from amounts import few_and_many
from client import finish
from files import digest, make_file
from texts import SUCCEEDED

SIZE = 64 << 20


def distances(chance, size, count):
    """How many bytes go over the line before each of so many random points."""
    points = sorted(chance.sample(range(1, size), count))
    return [point - before for point, before in zip(points, [0, *points])]


@pytest.fixture
def killed(server, relayed, chance):
    """Runs a command that moves SIZE bytes, and meanwhile kills the server and starts it again, so often."""

    def run(kills, *words):
        process = relayed.client.start(*words)
        for distance in distances(chance, SIZE, kills):
            relayed.relay.pass_bytes(distance, process)
            server.kill()
            server.start_again()
        relayed.relay.open()
        return finish(process)

    return run


@few_and_many("kills", 3, 20)
def test_an_upload_survives_a_server_that_is_killed_again_and_again(killed, place, tmp_path, kills):
    source = make_file(tmp_path / "source", SIZE)
    run = killed(kills, "cp", source, place / "copy")
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert digest(place.files / "copy") == digest(source)


@few_and_many("kills", 3, 20)
def test_a_download_survives_a_server_that_is_killed_again_and_again(killed, place, tmp_path, kills):
    make_file(place.files / "source", SIZE)
    run = killed(kills, "cp", place / "source", tmp_path / "copy")
    assert (run.status, run.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED)
    assert digest(tmp_path / "copy") == digest(place.files / "source")
