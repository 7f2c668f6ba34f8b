"""NFSv4's sessions and state when connections break, leases run out and servers start again: nothing is lost, and what
changes something is executed once."""

import pytest

import servers
from amounts import few_and_many
from files import make_entries

SIZE = 6 << 20  # some WRITEs of the largest size


@pytest.fixture
def nas(faulty):
    return faulty("--versions", "4", version="nfsv4.1")


@pytest.fixture
def content(chance):
    return chance.randbytes(SIZE)


@pytest.fixture
def upload(nas, content, tmp_path):
    """Copies the content up while something happens; gives the run."""
    source = tmp_path / "source"
    source.write_bytes(content)

    def run():
        return nas.run("cp", source, nas / "copy")

    return run


def uploaded(nas):
    return (nas.files / "copy").read_bytes()


IN_THE_MIDDLE = [
    f"{operation}:{status}"
    for operation, statuses in {
        "SEQUENCE": (
            "BADSESSION DEADSESSION BADSLOT SEQ_MISORDERED CONN_NOT_BOUND_TO_SESSION STALE_CLIENTID DELAY "
            "RETRY_UNCACHED_REP SEQ_FALSE_RETRY"
        ),
        "WRITE": "EXPIRED BAD_STATEID STALE_STATEID OLD_STATEID ADMIN_REVOKED DELAY GRACE",
        "COMMIT": "DELAY",
    }.items()
    for status in statuses.split()
]


@pytest.mark.parametrize("fault", IN_THE_MIDDLE)
def test_an_upload_outlives_what_befalls_its_session(nas, upload, content, fault):
    skip = 0 if fault.startswith("COMMIT") else 4
    nas.fault(f"status={fault}:1:{skip}")
    assert upload().status == 0
    assert uploaded(nas) == content
    assert nas.count("fault.status") == 1


def download_through(nas, content, tmp_path, status, times):
    """A file comes down whole although a status was answered so many times."""
    (nas.files / "source").write_bytes(content)
    nas.fault(f"status={status}")
    nas.ok("cp", nas / "source", tmp_path / "copy")
    assert (tmp_path / "copy").read_bytes() == content
    assert nas.count("fault.status") == times


@pytest.mark.parametrize("fault", [each.replace("WRITE", "READ") for each in IN_THE_MIDDLE if "COMMIT" not in each])
def test_a_download_outlives_what_befalls_its_session(nas, content, tmp_path, fault):
    download_through(nas, content, tmp_path, f"{fault}:1:{4 if 'SEQUENCE' in fault else 1}", times=1)


# The READs behind the first are asked for before the file is open, and again when the server wants it to be.
@pytest.mark.parametrize("status", ["LOCKED", "OPENMODE", "BAD_STATEID"])
def test_a_download_outlives_a_server_that_reads_open_files_only(nas, content, tmp_path, status):
    download_through(nas, content, tmp_path, f"READ:{status}:2:1", times=2)


@pytest.mark.parametrize("fault", ["EXCHANGE_ID:DELAY", "CREATE_SESSION:DELAY", "CREATE_SESSION:STALE_CLIENTID"])
def test_a_session_that_is_not_made_at_once_is_asked_for_again(nas, fault):
    nas.fault(f"status={fault}:1")
    nas.ok("mkdir", nas / "d")
    assert (nas.files / "d").is_dir()
    assert nas.count("fault.status") == 1


@pytest.mark.parametrize("status", ["FHEXPIRED", "MOVED", "WRONGSEC", "STALE", "IO"])
def test_an_upload_whose_file_is_gone_or_kept_from_us_fails(nas, upload, status):
    nas.fault(f"status=WRITE:{status}:*")
    assert upload().status == 1
    assert nas.count("fault.status") > 0


EVENTS = ("restart", "expire", "forget-clients", "lose-sessions", "cut")


@pytest.mark.parametrize("event", EVENTS)
def test_an_upload_outlives_a_server_that_forgets(nas, content, tmp_path, event):
    source = tmp_path / "source"
    source.write_bytes(content)
    nas.fault("delay=50")
    process = nas.start("cp", source, nas / "copy")
    nas.await_count("WRITE", 2, process)
    nas.tell(event)
    nas.tell("clear delay")
    output, errors = process.communicate(timeout=60)
    assert process.returncode == 0, (output, errors)
    assert uploaded(nas) == content


def test_what_was_open_is_had_back_after_a_restart_and_nothing_else_is_opened(nas, content, tmp_path):
    source = tmp_path / "source"
    source.write_bytes(content)
    nas.fault("delay=50")
    process = nas.start("cp", source, nas / "copy")
    nas.await_count("WRITE", 2, process)
    before = nas.count("OPEN")
    nas.tell("restart")
    nas.tell("clear delay")
    process.communicate(timeout=60)
    assert process.returncode == 0
    assert uploaded(nas) == content
    assert nas.count("OPEN") == before + 1
    assert nas.count("RECLAIM_COMPLETE") == 2
    assert nas.tell("opens") == "0"


def compounds_of(nas, *words):
    """The number of calls of a command that works."""
    before = nas.count("COMPOUND")
    nas.ok(*words)
    return nas.count("COMPOUND") - before


@pytest.mark.parametrize("fault", ["cut-request={}", "drop-reply=COMPOUND:{}"])
def test_a_directory_is_made_and_removed_once_wherever_the_connection_is_cut(nas, fault):
    calls = compounds_of(nas, "mkdir", nas / "first")
    for number in range(1, calls + 1):
        made, removed = nas.count("CREATE"), nas.count("REMOVE")
        nas.fault(fault.format(number))
        nas.ok("mkdir", nas / f"d{number}")
        assert (nas.files / f"d{number}").is_dir()
        assert nas.count("CREATE") == made + 1, number
        nas.tell("clear")
        nas.fault(fault.format(number))
        nas.ok("rmdir", nas / f"d{number}")
        assert not (nas.files / f"d{number}").exists()
        assert nas.count("REMOVE") == removed + 1, number
        nas.tell("clear")


def make_many(nas, count):
    many = nas.files / "many"
    many.mkdir(exist_ok=True)
    for number in range(count):
        (many / f"file{number}").touch()
    return many


@pytest.mark.parametrize("fault", ["cut-request={}", "drop-reply=COMPOUND:{}"])
def test_files_that_go_together_go_once_wherever_the_connection_is_cut(nas, fault):
    files = 20
    many = make_many(nas, files)
    for number in range(1, compounds_of(nas, "rm", f"{nas / 'many'}/*") + 1):
        make_many(nas, files)
        removed = nas.count("REMOVE")
        nas.fault(fault.format(number))
        nas.ok("rm", f"{nas / 'many'}/*")
        nas.tell("clear")
        assert not list(many.iterdir())
        assert nas.count("REMOVE") == removed + files, number


@pytest.mark.parametrize("event", EVENTS)
def test_files_that_go_together_outlive_a_server_that_forgets(nas, event):
    many = make_many(nas, 200)
    nas.fault("delay=50")
    process = nas.start("rm", f"{nas / 'many'}/*")
    nas.await_count("REMOVE", 8, process)
    nas.tell(event)
    nas.tell("clear delay")
    output, errors = process.communicate(timeout=60)
    assert process.returncode == 0, (output, errors)
    assert not list(many.iterdir())


SMALL = 1000  # bytes, which go with their file


@pytest.mark.parametrize("size", [SMALL, 3 << 20])
@few_and_many("step", 4, 1)
@pytest.mark.parametrize("fault", ["cut-request={}", "drop-reply=COMPOUND:{}"])
def test_a_file_is_whole_wherever_the_connection_is_cut(nas, tmp_path, chance, fault, step, size):
    source = tmp_path / "source"
    source.write_bytes(chance.randbytes(size))
    calls = compounds_of(nas, "cp", source, nas / "first")
    for number in range(1, calls + 1, step):
        opened = nas.count("OPEN")
        nas.fault(fault.format(number))
        nas.ok("cp", source, nas / f"f{number}")
        nas.tell("clear")
        assert (nas.files / f"f{number}").read_bytes() == source.read_bytes(), number
        assert nas.count("OPEN") == opened + 1, number
    assert nas.tell("opens") == "0"


OF_A_SMALL_FILE = [
    "OPEN:DELAY",
    "OPEN:GRACE",
    *(f"{operation}:{status}" for operation in ("WRITE", "CLOSE") for status in ("DELAY", "EXPIRED", "BAD_STATEID")),
]


@pytest.mark.parametrize("fault", OF_A_SMALL_FILE)
def test_a_small_file_is_whole_whatever_befalls_a_part_of_its_question(nas, tmp_path, chance, fault):
    source = tmp_path / "source"
    source.write_bytes(chance.randbytes(SMALL))
    nas.fault(f"status={fault}:1")
    nas.ok("cp", source, nas / "copy")
    assert uploaded(nas) == source.read_bytes()
    assert nas.count("fault.status") == 1
    assert nas.tell("opens") == "0"


def test_a_small_file_for_which_there_is_no_room_fails_and_leaves_nothing(nas, tmp_path):
    (tmp_path / "source").write_bytes(b"x" * SMALL)
    nas.fault("status=WRITE:NOSPC:9")
    failed = nas.run("cp", tmp_path / "source", nas / "copy", env={"TSLWNFS_TERMINAL": "reasons"})
    assert failed.status == 1
    assert failed.out.endswith(b"TWNFS-65022: The command failed with status 1.\n")
    assert b"no space left on the server" in failed.err
    assert uploaded(nas) == b""


def test_a_path_to_another_server_is_left_alone(nas, content, installed_home, tmp_path):
    (tmp_path / "source").write_bytes(content)
    folder = tmp_path / "elsewhere"
    folder.mkdir()
    other = servers.LoopnfsdProcess(installed_home, "--no-sync", "--versions", "4", folder)
    try:
        nas.client.tslnfstab.write_text(
            servers.server_block(
                "nas", f"{nas.daemon.address} {other.address}", [("/export", nas.remote)], version="nfsv4.1"
            )
        )
        trace = tmp_path / "trace"
        nas.ok("-trace", trace, "-level", "1", "1", "1", "1", "cp", tmp_path / "source", nas / "copy")
    finally:
        other.close()
    left, used = (nas.files, folder) if (folder / "copy").exists() else (folder, nas.files)
    assert (used / "copy").read_bytes() == content
    assert list(left.iterdir()) == []
    assert "another server answers here, the path is left alone" in trace.read_text()


def test_paths_to_one_server_share_its_session(faulty, content, tmp_path):
    nas = faulty("--versions", "4", "--address", "127.0.0.1", "--address", "127.0.0.2", version="nfsv4.1")
    nas.fault("rate=20000000")
    (tmp_path / "source").write_bytes(content)
    nas.ok("cp", tmp_path / "source", nas / "copy")
    assert uploaded(nas) == content
    assert nas.count("CREATE_SESSION") == 1
    assert min(nas.count("path.1"), nas.count("path.2")) > SIZE // 10


# A file that is open at the end is closed in the request that ends the session.
def test_what_a_file_needs_is_few_calls(nas, tmp_path):
    contact = 1  # with what makes and ends the session it is five
    (tmp_path / "small").write_bytes(b"content")
    (nas.files / "large").write_bytes(b"x" * (2 << 20))
    for words, (calls, around) in {
        ("cp", tmp_path / "small", nas / "small"): (1, 4),  # OPEN, WRITE, CLOSE
        ("cat", nas / "small"): (1, 4),  # READ
        ("cat", nas / "large"): (3, 3),  # OPEN and READ; READ; CLOSE
    }.items():
        before, all_before = nas.count("SEQUENCE"), nas.count("COMPOUND")
        nas.ok(*words)
        assert nas.count("SEQUENCE") - before == contact + calls, words
        assert nas.count("COMPOUND") - all_before == contact + calls + around, words
        assert nas.tell("opens") == "0"


def test_small_files_are_read_without_being_opened(nas, content, tmp_path):
    make_entries(nas.files / "many", 3, 4096)
    nas.ok("cp", f"{nas / 'many'}/*", tmp_path)
    assert nas.count("READ") == 3
    assert nas.count("OPEN") == 0
    assert all((tmp_path / path.name).read_bytes() == path.read_bytes() for path in (nas.files / "many").iterdir())


@pytest.mark.parametrize("status", ["LOCKED", "OPENMODE", "BAD_STATEID", "ACCESS", "INVAL"])
def test_small_files_come_down_from_a_server_that_reads_open_files_only(nas, tmp_path, status):
    make_entries(nas.files / "many", 3, 4096)
    nas.fault(f"status=READ:{status}:1")
    nas.ok("cp", f"{nas / 'many'}/*", tmp_path)
    assert nas.count("fault.status") == 1
    assert nas.count("READ") == 4, "the first file's twice, and no other's"
    assert nas.count("OPEN") == nas.count("CLOSE") == 1, "the others were asked for before that was known"
    assert all((tmp_path / path.name).read_bytes() == path.read_bytes() for path in (nas.files / "many").iterdir())


@pytest.mark.parametrize(
    "fault", ["SEQUENCE:BADSESSION", "SEQUENCE:DELAY", "CLOSE:DELAY", "CLOSE:BAD_STATEID", "DESTROY_SESSION:DELAY"]
)
def test_a_server_that_refuses_a_farewell_is_left_all_the_same(faulty, content, fault):
    nas = faulty("--versions", "4", "--grace", "600", version="nfsv4.1", io_timeout=20)
    (nas.files / "large").write_bytes(content)
    assert content in nas.ok("cat", nas / "large")
    skip = nas.count("SEQUENCE") - 1 if fault.startswith("SEQUENCE") else 0
    nas.fault(f"status={fault}:1:{skip}")
    assert content in nas.ok("cat", nas / "large")
    assert nas.count("fault.status") == 1
    assert nas.tell("opens") == "0"
    nas.tell("restart")
    assert content in nas.ok("cat", nas / "large"), "nobody is known who would be waited for"


def test_a_long_listing_of_a_large_directory_needs_few_calls(nas):
    make_entries(nas.files / "many", 10_000)
    before = nas.count("COMPOUND")
    assert nas.ok("ls", "-l", nas / "many").count(b"\n  entry") == 10_000
    assert nas.count("COMPOUND") - before <= 40
