"""Several files at a time: nobody can tell it from one after the other."""

import os
import pathlib
import re
import shutil
import signal

import namespace
import pytest
import servers

FILES = 60
NAMES = [f"file-{number:02}" for number in range(FILES)]


def fill(folder, directories=(), large=None):
    """Files of sizes that differ, some of them empty, and directories at places between them."""
    folder.mkdir(parents=True)
    for number, name in enumerate(NAMES):
        if name in directories:
            (folder / name).mkdir()
            (folder / name / "inside").write_bytes(b"inside")
        else:
            (folder / name).write_bytes(bytes([number]) * (large or number * 500))
    return folder


def content_of(folder):
    return {
        str(path.relative_to(folder)): path.read_bytes() if path.is_file() else None
        for path in sorted(pathlib.Path(folder).rglob("*"))
    }


def without_clocks(text):
    return re.sub(rb"\[\d+\],", b"[],", text)


class Told:
    """What a run told everywhere, with its own folders' name left out, and what it left behind."""

    def __init__(self, run, files, tmp_path, number):
        own = f"round{number}".encode()
        self.status = run.status
        self.out, self.err, self.log, self.trace = (
            without_clocks(text).replace(own, b"round")
            for text in (run.out, run.err, *(read(tmp_path / name) for name in ("log", "trace")))
        )
        self.files = files


def read(path):
    return path.read_bytes() if path.exists() else b""


@pytest.fixture
def compared(place, server, tmp_path):
    """Runs a command with one worker and with eight, each on trees of its own, and gives what both told. prepare makes
    the trees, by the folders of the server and of this host, and gives the words of the command."""

    def compare(prepare, *options):
        told = []
        for number, jobs in enumerate((1, 8)):
            far, near = place.files / f"round{number}", tmp_path / f"round{number}"
            far.mkdir()
            near.mkdir()
            trace = ("-trace", tmp_path / "trace", "-level", "1", "3", "3", "1")
            words = prepare(far, near, f"{place.remote}/round{number}")
            run = server.run(
                *trace, *options, *words, env={"TSLWNFS_JOBS": jobs, "TSLWNFS_TERMINAL": "reasons"}, cwd=tmp_path
            )
            told.append(Told(run, [content_of(far), content_of(near)], tmp_path, number))
        assert vars(told[0]) == vars(told[1])
        return told[1]

    return compare


def test_a_wildcard_copied_to_a_server(compared):
    told = compared(lambda far, near, remote: ("cp", f"{fill(near / 'src')}/*", f"{remote}/"))
    assert told.status == 0 and told.out.count(b"65023") == FILES
    assert sum(size is not None for size in told.files[0].values()) == FILES


def test_a_wildcard_copied_into_a_directory_that_exists(compared):
    def prepare(far, near, remote):
        (far / "up").mkdir()
        return "cp", f"{fill(near / 'src')}/*", f"{remote}/up"

    told = compared(prepare)
    assert told.status == 0 and told.out.count(b"65023") == FILES
    assert len(told.files[0]) == FILES + 1


# Most names are not there, so the library does not look up each; these it has to find all the same.
def test_what_is_there_already_is_found_among_many_new_files(compared):
    kept, folder = NAMES[::3], NAMES[31]

    def prepare(far, near, remote):
        (far / "up" / folder).mkdir(parents=True)
        for name in kept:
            (far / "up" / name).write_bytes(b"longer than what comes" * 5000)
            (far / "up" / name).chmod(0o640)
        return "cp", f"{fill(near / 'src')}/*", f"{remote}/up"

    told = compared(prepare)
    there, came = told.files
    assert told.out.count(b"65023") == FILES - 1 and told.out.count(b"65022") == 1  # the folder
    assert there == {"up": None, **{f"up/{name}": came[f"src/{name}"] for name in NAMES}, f"up/{folder}": None}


def test_a_wildcard_copied_from_a_server(compared):
    def prepare(far, near, remote):
        fill(far / "src")
        return "cp", f"{remote}/src/*", f"{near}/*"

    assert len(compared(prepare).files[1]) == FILES


def test_a_wildcard_copied_from_server_to_server(compared):
    def prepare(far, near, remote):
        fill(far / "src")
        (far / "dst").mkdir()
        return "cp", f"{remote}/src/*", f"{remote}/dst/*"

    assert len(compared(prepare).files[0]) == 2 * FILES + 2


def test_a_wildcard_moved_with_failures_in_the_middle(compared):
    def prepare(far, near, remote):
        (far / "dst").mkdir()
        return "mv", f"{fill(near / 'src', directories=NAMES[20:23])}/*", f"{remote}/dst/*"

    told = compared(prepare)
    assert told.status == 1 and told.out.count(b"65022") == 3 and told.out.count(b"65023") == FILES - 3
    assert len(told.files[1]) == 1 + 2 * 3 and b"is a directory" in told.err


def test_a_log_gets_everything_in_the_order_of_the_files(compared, tmp_path):
    def prepare(far, near, remote):
        fill(far / "src", directories=NAMES[5:7])
        return "rm", f"{remote}/src/*"

    told = compared(prepare, "-log", tmp_path / "log")
    banners = re.findall(rb"^DEL .*/(file-\d\d) : $", told.log, flags=re.MULTILINE)
    assert sorted(name.decode() for name in banners) == NAMES and told.log.count(b"65022") == 2


def test_a_tree_is_copied_and_removed_as_by_one_worker(compared):
    def with_trees(far, near, remote):
        for number in range(4):
            fill(near / "tree" / f"d{number}", directories=NAMES[40:42])
        return "cp", "-r", near / "tree", f"{remote}/tree"

    assert compared(with_trees).files[0].keys() > {"tree/d3/file-40/inside"}


def test_a_tree_is_removed_as_by_one_worker(compared):
    def prepare(far, near, remote):
        for number in range(3):
            fill(far / "tree" / f"d{number}", directories=NAMES[40:42])
        return "rm", "-r", f"{remote}/tree"

    told = compared(prepare)
    assert told.status == 0 and told.files[0] == {}


def test_a_transfer_that_fails_ends_the_run_where_it_would_have_ended(faulty, tmp_path):
    outputs = []
    server = faulty()
    source = fill(tmp_path / "src", large=100)
    # In the middle of the listing, and so long that the failure is known before the end.
    (source / os.listdir(source)[20]).write_bytes(b"x" * (100 << 20))
    for jobs in (1, 8):
        folder = server.files / "dst"
        folder.mkdir()
        server.fault("capacity=30M")
        run = server.run("cp", f"{source}/*", server / "dst/*", env={"TSLWNFS_JOBS": jobs})
        shutil.rmtree(folder)
        server.kill()  # what has grown counts from the start
        server.start_again()
        outputs.append((run.status, run.out))
    assert outputs[0] == outputs[1] and outputs[0][0] == 1
    assert outputs[0][1].count(b"COPY") == 21


VERSIONS = {"nfsv3": ((), {}), "nfsv4.1": (servers.Loopnfsd4.words, servers.Loopnfsd4.settings)}


@pytest.fixture(params=VERSIONS)
def faulty_either(request, faulty):
    words, settings = VERSIONS[request.param]
    return faulty(*words, io_timeout=20, **settings)


# Those that come next are asked for ahead of their turn.
@pytest.mark.parametrize(
    "fault",
    [
        "cut-request=12:3",
        "drop-reply=READ:5:3",
        "duplicate",
        "reorder",
        "rtt=5",
        "short-read=700",
        "status=READ:JUKEBOX:3:5",
    ],
)
def test_small_files_come_down_whole_from_a_server_with_faults(faulty_either, tmp_path, fault):
    server = faulty_either
    fill(server.files / "src")
    (tmp_path / "down").mkdir()
    server.fault(fault.replace("JUKEBOX", "DELAY") if "version" in server.settings else fault)
    server.ok("cp", f"{server / 'src'}/*", tmp_path / "down")
    assert content_of(tmp_path / "down") == content_of(server.files / "src")


# The deletion of those that come next is begun ahead of their turn.
@pytest.mark.parametrize(
    "fault",
    [
        "cut-request=12:3",
        "delay=2",
        "drop-reply=REMOVE:5:3",
        "duplicate",
        "reorder",
        "rtt=5",
        "status=REMOVE:JUKEBOX:3:5",
    ],
)
@pytest.mark.parametrize("words", [("rm", "src/*"), ("rm", "-r", "src")], ids=" ".join)
def test_files_go_from_a_server_with_faults(faulty_either, words, fault):
    server = faulty_either
    fill(server.files / "src", directories=NAMES[30:33] if "-r" in words else ())
    server.fault(fault.replace("JUKEBOX", "DELAY") if "version" in server.settings else fault)
    server.ok(*words[:-1], server / words[-1])
    assert not any(server.files.rglob("file*"))


def test_a_file_that_cannot_be_deleted_is_told_of_at_its_turn_and_the_others_go(faulty_either):
    server = faulty_either
    fill(server.files / "src")
    server.fault("status=REMOVE:ACCES:1:20")
    run = server.run("rm", f"{server / 'src'}/*", env={"TSLWNFS_TERMINAL": "reasons"})
    (left,) = os.listdir(server.files / "src")
    assert run.status == 1
    assert [left.encode() in line for line in run.err.splitlines() if b"ermission" in line] == [True]
    assert run.out.count(b"65023") == FILES - 1


def test_no_deletion_is_begun_where_somebody_is_asked(faulty_either):
    server = faulty_either
    fill(server.files / "src")
    run = server.run("rm", "-i", f"{server / 'src'}/*", stdin=b"n\n" * (FILES - 1) + b"y\n")
    assert run.status == 1, "as where one is not deleted"
    assert len(os.listdir(server.files / "src")) == FILES - 1
    assert server.count("REMOVE") == 1


def test_a_small_file_that_cannot_be_read_ends_the_run_at_its_turn(faulty_either, tmp_path):
    server = faulty_either
    fill(server.files / "src", large=100)
    down = tmp_path / "down"
    down.mkdir()
    server.fault("status=READ:IO:*:30")
    # No processes: they would ask anew for what was asked for ahead.
    assert server.run("cp", f"{server / 'src'}/*", down, env={"TSLWNFS_JOBS": "1"}).status == 1
    whole = {name: content for name, content in content_of(down).items() if content}
    assert len(whole) == 30
    assert whole.items() <= content_of(server.files / "src").items()


def test_names_that_differ_by_nothing_but_case_never_meet(compared):
    def prepare(far, near, remote):
        fill(near / "src")
        (near / "src" / "FILE-07").write_bytes(b"capitals")
        return "cp", f"{near}/src/*", f"{remote}/"

    assert b"already took another file" in compared(prepare).err


def test_what_each_worker_asks_for_itself_is_the_way_to_the_directory(faulty, tmp_path):
    server = faulty()
    fill(tmp_path / "src", large=100)
    counts = {}
    for jobs in (1, 4):
        server.tell("reset-stats")
        server.ok("cp", f"{tmp_path}/src/*", server / f"{jobs}-*", env={"TSLWNFS_JOBS": jobs})
        counts[jobs] = {name: server.count(name) for name in ("CREATE", "WRITE", "MNT", "UMNT")}
    assert counts[1] == {"CREATE": FILES, "WRITE": FILES, "MNT": 1, "UMNT": 1}
    assert counts[4] == {"CREATE": FILES, "WRITE": FILES, "MNT": 5, "UMNT": 5}


def test_a_server_far_away_is_asked_by_several(faulty, tmp_path):
    server = faulty()
    fill(tmp_path / "src", large=100)
    server.fault("rtt=20")
    server.ok("cp", f"{tmp_path}/src/*", server.remote)
    assert server.count("MNT") == 1 + 8
    assert content_of(server.files) == content_of(tmp_path / "src")


@pytest.mark.parametrize(
    "words", [("-i", "M/*", "down"), ("M/file-0*", "down"), ("down/*", "other")], ids=["asked", "few", "local"]
)
def test_one_process_is_enough(faulty, tmp_path, words):
    server = faulty()
    fill(server.files / "src", large=100)
    fill(tmp_path / "down", large=100)
    (tmp_path / "other").mkdir()
    words = [word.replace("M/", f"{server.remote}/src/").replace("down", str(tmp_path / "down")) for word in words]
    words = [str(tmp_path / "other") if word == "other" else word for word in words]
    server.ok("cp", *words, env={"TSLWNFS_JOBS": 4}, stdin=b"y\n" * FILES)
    assert server.count("MNT") <= 1


# Processes


def children_of(process):
    listed = pathlib.Path(f"/proc/{process.pid}/task/{process.pid}/children").read_text()
    return [int(word) for word in listed.split()]


@pytest.fixture
def stalled(faulty, tmp_path):
    """A copy whose workers wait for a server that does not answer."""
    server = faulty()
    fill(tmp_path / "src", large=100)
    server.fault("rtt=400")
    environment = {"TSLWNFS_JOBS": 4, "TSLWNFS_TERMINAL": "always"}
    process = server.start("cp", f"{tmp_path}/src/*", server / "*", env=environment)
    namespace.await_condition(lambda: len(children_of(process)) == 4, "workers", process)
    server.await_count("CREATE", 1, process)
    server.fault("silent")
    yield server, process
    process.kill()
    process.communicate()


def is_gone(pid):
    try:
        state = pathlib.Path(f"/proc/{pid}/stat").read_text()
    except FileNotFoundError:
        return True
    return state.rpartition(")")[2].split()[0] == "Z"


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGKILL], ids=lambda number: number.name)
def test_nothing_is_left_running_when_the_command_is_ended(stalled, number):
    _, process = stalled
    workers = children_of(process)
    process.send_signal(number)
    assert process.wait(timeout=60) in (-number, 128 + number)
    for pid in workers:
        namespace.await_condition(lambda: is_gone(pid), f"the end of {pid}")


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM], ids=lambda number: number.name)
def test_files_that_were_being_written_are_left_as_by_one_process(faulty, tmp_path, number):
    """A person reads which are not complete, and the status tells."""
    server = faulty()
    (tmp_path / "src").mkdir()
    for name in NAMES[:16]:
        (tmp_path / "src" / name).write_bytes(b"x" * 6_000_000)
    server.fault("rate=1000000")
    environment = {"TSLWNFS_JOBS": 4, "TSLWNFS_TERMINAL": "always"}
    process = server.start("cp", f"{tmp_path}/src/*", server / "*", env=environment)
    server.await_count("WRITE", 2, process)
    workers = children_of(process)
    process.send_signal(number)
    _, err = process.communicate(timeout=60)
    assert process.returncode == 128 + number
    told = re.findall(rb"interrupted: \S+/(file-\d\d) is not complete", err)
    assert told and len(told) == len(set(told)) <= 4, err
    assert all(is_gone(pid) for pid in workers)


def test_a_worker_that_dies_is_one_failed_file(stalled):
    server, process = stalled
    os.kill(children_of(process)[0], signal.SIGKILL)
    server.tell("clear")
    out, err = process.communicate(timeout=300)
    assert process.returncode == 1
    assert (out.count(b"65022"), out.count(b"65023")) == (1, FILES - 1)
    assert b"the process that worked on it died: Killed" in err


def test_one_line_shows_how_far_all_files_are(stalled):
    server, process = stalled
    server.tell("clear silent")
    _, err = process.communicate(timeout=300)
    assert process.returncode == 0
    assert re.search(rb"\d+ of 60 files", err)
