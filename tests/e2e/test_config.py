"""The commands that write, show and edit tslnfstab: from the command line to the bytes of the file."""

import namespace
import pytest
import servers
from files import digest, make_file
from texts import SUCCEEDED, failed

BEGIN, END = "#<server block begin>\n", "#<server block end>\n"


def block(name, *lines):
    return BEGIN + f"server: {name}\n" + "".join(f"{line}\n" for line in lines) + END


def unknown(name):
    return f"Requested server:{name} is not present in tslnfstab\n".encode()


def companion(client, ending):
    return client.tslnfstab.with_name(client.tslnfstab.name + ending)


def backup(client):
    return companion(client, ".bak")


def test_a_server_lives_from_its_block_to_its_deletion(own, tmp_path):
    """Created, used, switched to RDMA and back, deleted: then the path is local again."""
    served = tmp_path / "served"
    served.mkdir()
    source = make_file(tmp_path / "source", 70_000)
    mount = tmp_path / "mount"
    mount.mkdir()
    daemon = servers.LoopnfsdProcess(own.home, served)
    try:
        pairs, exports = f"127.0.0.1,{daemon.address}", f"/export,{mount}"
        assert own.ok("createtslnfstab", "-s", "loop", "-lp", pairs, "-em", exports) == SUCCEEDED
        lines = [f"local: 127.0.0.1 \t path: {daemon.address}", f"export: /export \t mount: {mount}"]
        assert own.tslnfstab.read_text() == block("loop", *lines)
        own.ok("cp", source, mount / "plain")

        assert own.ok("enablerdma", "-s", "loop") == SUCCEEDED
        assert own.tslnfstab.read_text() == block("loop", *lines, "rdmaport: 20049")
        own.ok("cp", source, mount / "rdma")

        assert own.ok("disablerdma", "-s", "loop") == SUCCEEDED
        assert own.tslnfstab.read_text() == block("loop", *lines)
        own.ok("cp", source, mount / "again")
        for name in ("plain", "rdma", "again"):
            assert digest(served / name) == digest(source)

        assert own.ok("delete_server", "-s", "loop") == SUCCEEDED
        assert own.tslnfstab.read_bytes() == b""
        own.ok("cp", source, mount / "local")
        assert digest(mount / "local") == digest(source)
        assert not (served / "local").exists()
    finally:
        daemon.close()


def test_every_option_of_a_block_has_its_place_whatever_the_order(own):
    options = ["-m", "manager", "-sd", "sys", "-t", "15", "-r", "20049", "-c", "public", "-v", "nfsv3"]
    options += ["-em", "/e1,/m1;;/e2,/m2,krb5,more", "-lp", "10.0.0.1,10.0.0.2;10.1.0.1,10.1.0.2"]
    options += ["-s", "filer", "-g", "0", "-u", "0"]
    assert own.ok("createtslnfstab", *options) == SUCCEEDED
    assert own.tslnfstab.read_text() == (
        "#<server block begin>\n"
        "uid: 0\n"
        "gid: 0\n"
        "server: filer\n"
        "local: 10.0.0.1 \t path: 10.0.0.2\n"
        "local: 10.1.0.1 \t path: 10.1.0.2\n"
        "export: /e1 \t mount: /m1\n"
        "export: /e2 \t mount: /m2\tsecurity: krb5\n"
        "version: nfsv3\n"
        "community: public\n"
        "rdmaport: 20049\n"
        "mnt_timeout: 15\n"
        "security_default: sys\n"
        "management: manager\n"
        "#<server block end>\n"
    )


def test_the_longest_words_of_a_line_reach_the_file(own):
    name = "n" * 259
    assert own.ok("createtslnfstab", "-s", name) == SUCCEEDED
    assert own.tslnfstab.read_text() == block(name)
    assert own.ok("getserverlist") == name.encode() + b"\n" + SUCCEEDED
    assert own.run("createtslnfstab", "-s", name + "n").status == 1
    assert own.tslnfstab.read_text() == block(name)


def test_lists_of_16_entries_are_taken_and_longer_ones_leave_the_file_alone(own):
    assert own.ok("createtslnfstab", "-s", "a", "-lp", ";".join(["l,p"] * 16)) == SUCCEEDED
    written = own.tslnfstab.read_text()
    assert written == block("a", *["local: l \t path: p"] * 16)
    for option in ("-lp", "-em"):
        run = own.run("createtslnfstab", "-s", "a", option, ";".join(["x,y"] * 17))
        assert (run.status, run.out) == (1, failed(1))
        assert own.tslnfstab.read_text() == written


def test_without_a_name_nothing_is_written(own, tmp_path):
    mandatory = b"Server name is mandatory for createtslnfstab function\n"
    run = own.run("createtslnfstab", "-u", "5")
    assert (run.status, run.out) == (1, mandatory + failed(1))
    # Behind a global option the command sees no options at all.
    log = tmp_path / "log"
    run = own.run("-log", log, "createtslnfstab", "-s", "a")
    assert (run.status, run.out, log.read_bytes()) == (1, mandatory, failed(1))
    assert not own.tslnfstab.exists()


def test_servers_are_listed_and_shown(own):
    own.tslnfstab.write_text("server: loose # note\n" + BEGIN + "uid: 5\n\n  # note\n\tserver: a#b\n version: 3\n" + END)
    assert own.ok("getserverlist") == b"loose\na\n" + SUCCEEDED
    assert own.ok("display_server", "-s", "a") == b"uid: 5\nserver: a#b\nversion: 3\n" + SUCCEEDED
    assert own.ok("display_server", "-s", "b") == unknown("b") + SUCCEEDED


def test_deleting_keeps_every_other_byte(own):
    kept = b"# \xff\n\n\t odd line\nlast: line without a feed"
    own.tslnfstab.write_bytes(kept[:4] + block("a").encode() + kept[4:])
    assert own.ok("delete_server", "-s", "a") == SUCCEEDED
    assert own.tslnfstab.read_bytes() == kept
    assert not backup(own).exists()


def test_deleting_an_unknown_server_leaves_an_empty_backup(own):
    own.tslnfstab.write_text(block("a"))
    assert own.ok("delete_server", "-s", "b") == unknown("b") + SUCCEEDED
    assert own.tslnfstab.read_text() == block("a")
    assert backup(own).read_bytes() == b""


def test_a_rewritten_file_keeps_its_permissions(own):
    own.tslnfstab.write_text(block("a"))
    own.tslnfstab.chmod(0o640)
    assert own.ok("enablerdma", "-s", "a", "-p", "7") == SUCCEEDED
    assert own.tslnfstab.read_text() == block("a", "rdmaport: 7")
    assert own.tslnfstab.stat().st_mode & 0o7777 == 0o640


@pytest.mark.parametrize(
    "words, printed",
    [
        (["getserverlist"], "could not open {} errno 2\n"),
        (["display_server", "-s", "a"], "fopen failed for {}\n"),
        (["delete_server", "-s", "a"], "could not open {} errno 2\n"),
        (["enablerdma", "-s", "a"], "could not open {} errno 2\n"),
        (["disablerdma", "-s", "a"], "could not open {} errno 2\n"),
        (["umount", "/m"], "UMOUNT:\n"),
    ],
)
def test_a_missing_file_is_a_failure(own, words, printed):
    run = own.run(*words)
    assert (run.status, run.out) == (1, printed.format(own.tslnfstab).encode() + failed(1))
    assert list(own.tslnfstab.parent.iterdir()) == []


@pytest.mark.parametrize("word", ["display_server", "delete_server", "disablerdma"])
def test_a_missing_name_is_a_failure(own, word):
    run = own.run(word)
    assert (run.status, run.out) == (1, failed(1))


def test_rdma_cannot_be_switched_for_an_unknown_server(own):
    own.tslnfstab.write_text(block("a"))
    for words in (["enablerdma", "-s", "b"], ["disablerdma", "-s", "b"]):
        run = own.run(*words)
        assert (run.status, run.out) == (1, b"Requested server is not present in tslnfstab\n" + failed(1))
    run = own.run("disablerdma", "-s", "a")
    fixless = b"Requested server is present in tslnfstab but failed to fix it\n"
    assert (run.status, run.out) == (1, fixless + failed(1))
    assert own.tslnfstab.read_text() == block("a")
    assert not backup(own).exists()


# ---- mount and umount


def test_mounts_are_recorded_and_a_copy_without_them_is_made(own):
    assert own.ok("mount", "srv:/vol/", "/U02/") == b"MOUNT:\n" + SUCCEEDED
    options = ["-s", "srv", "-p", "10.0.0.2", "-l", "10.0.0.1", "-g", "6", "-u", "5"]
    assert own.ok("mount", "srv:/", "/u03", *options) == b"MOUNT:\n" + SUCCEEDED
    recorded = (
        "\nexport: srv:/vol\nmount: /U02\n"
        "\nuid: 5\ngid: 6\nserver: srv\nlocal: 10.0.0.1\npath: 10.0.0.2\nexport: srv:/\nmount: /u03\n"
    )
    assert own.tslnfstab.read_text() == recorded
    assert own.ok("umount", "/u02") == b"UMOUNT:\n" + SUCCEEDED
    assert own.tslnfstab.read_text() == recorded
    assert companion(own, ".bakfile").read_text() == (
        "\nuid: 5 \ngid: 6 \nserver: srv \nlocal: 10.0.0.1 \npath: 10.0.0.2 \nexport: srv:/\nmount: /u03 "
    )


def test_a_forced_mount_begins_the_file_anew(own):
    own.tslnfstab.write_text(block("a"))
    own.ok("mount", "srv:/vol", "/m", "-f")
    assert own.tslnfstab.read_text() == "export: srv:/vol\nmount: /m\n"


def test_the_banner_of_a_mount_stays_on_standard_output(own, tmp_path):
    """Behind a global option the operands are taken from their fixed places all the same."""
    log = tmp_path / "log"
    assert own.ok("-log", log, "mount", "srv:/vol", "/m") == b"MOUNT:\n"
    assert log.read_bytes() == SUCCEEDED
    assert own.tslnfstab.read_text() == f"\nexport: {log}\nmount: mount\n"


# ---- scripts


def test_mount_scripts_are_written_for_an_administrator_to_run(own, tmp_path):
    base = {"TESSEL_BASE": tmp_path}
    scripts = tmp_path / "tslwnfs_Scripts"

    def created(name):
        return f"script creation successful. Location : {scripts}/{name}\n".encode() + SUCCEEDED

    assert own.ok("mount_script", "-e", "srv:/vol", "-m", "/u02", env=base) == created("mount_script.sh")
    assert own.ok("umount_script", "-m", "/u02", env=base) == created("umount_script.sh")
    assert (scripts / "mount_script.sh").read_text() == (
        "mount -o rw,bg,hard,nointr,rsize=32768,wsize=32768,tcp,actimeo=0,vers=3,timeo=600 srv:/vol /u02\n"
    )
    assert (scripts / "umount_script.sh").read_text() == "umount -f /u02\n"
    assert scripts.stat().st_mode & 0o7777 == 0o700


@pytest.mark.parametrize("base", [None, "", "/" + "b" * 1023], ids=["unset", "empty", "too long"])
def test_mount_scripts_need_a_base(own, base):
    run = own.run("mount_script", "-e", "srv:/vol", "-m", "/u02", env={"TESSEL_BASE": base})
    assert (run.status, run.out) == (1, b"envfetch failed for : TESSEL_BASE\n" + failed(1))


# ---- a disk that is full, and files that cannot be replaced

PAGE = 4096
ROOM = 16  # pages of the small file system


class SmallDisk:
    """A client whose tslnfstab stands on a file system of 16 pages."""

    def __init__(self, client):
        self.namespace = namespace.Namespace()
        self.client = client
        self.place = client.tslnfstab.parent
        self.namespace.run("mount", "-t", "tmpfs", "-o", f"size={ROOM * PAGE}", "tmpfs", str(self.place))
        client.enter = self.namespace.enter(mounts=True)

    def path(self, ending=""):
        return self.namespace.seen_from_outside(str(self.client.tslnfstab) + ending)

    def fill(self, contents, free):
        """The configuration, and nothing else but free pages."""
        for path in self.path().parent.iterdir():
            path.unlink()
        self.path().write_bytes(contents)
        used = -(-len(contents) // PAGE)
        (self.path().parent / "filler").write_bytes(b"x" * PAGE * (ROOM - used - free))

    def contents(self, ending=""):
        path = self.path(ending)
        return path.read_bytes() if path.exists() else None

    def close(self):
        self.namespace.close()


@pytest.fixture
def small_disk(own):
    why = namespace.why_impossible()
    if why:
        pytest.skip(why)
    disk = SmallDisk(own)
    yield disk
    disk.close()


LONG = ("# " + "n" * 60 + "\n") * 300  # five pages
OTHERS = block("other") + LONG
BEFORE = block("a", "rdmaport: 1") + OTHERS


@pytest.mark.parametrize(
    "words, after",
    [
        (["delete_server", "-s", "a"], OTHERS),
        (["enablerdma", "-s", "other"], block("a", "rdmaport: 1") + block("other", "rdmaport: 20049") + LONG),
        (["disablerdma", "-s", "a"], block("a") + OTHERS),
    ],
    ids=lambda value: value[0] if isinstance(value, list) else "",
)
def test_a_full_disk_never_costs_the_configuration(small_disk, words, after):
    statuses = set()
    for free in range(8):
        small_disk.fill(BEFORE.encode(), free)
        run = small_disk.client.run(*words)
        statuses.add(run.status)
        if run.status == 0:
            assert small_disk.contents() == after.encode()
            assert small_disk.contents(".bak") is None
        else:
            unwritten = f"could not open {small_disk.client.tslnfstab}.bak errno 28\n".encode()
            assert run.out == unwritten + failed(1)
            assert small_disk.contents() == BEFORE.encode()
    assert statuses == {0, 1}


def test_a_full_disk_keeps_the_configuration_from_growing_by_halves(small_disk):
    """A block that does not fit leaves no part of itself."""
    whole = BEFORE.encode()
    whole += b"#" * (-len(whole) % PAGE - 1) + b"\n"
    for words in (["createtslnfstab", "-s", "new"], ["mount", "srv:/vol", "/m"]):
        small_disk.fill(whole, 0)
        assert small_disk.client.run(*words).status == 1
        assert small_disk.contents() == whole


def test_a_server_created_again_on_a_full_disk_keeps_a_block(small_disk):
    for free in range(8):
        small_disk.fill(BEFORE.encode(), free)
        small_disk.client.run("createtslnfstab", "-s", "a")
        kept = small_disk.contents()
        assert block("a").encode() in kept or block("a", "rdmaport: 1").encode() in kept
        assert OTHERS.encode() in kept


def test_a_saved_copy_survives_a_full_disk(small_disk):
    for free in range(8):
        small_disk.fill(BEFORE.encode(), free)
        saved = small_disk.client.run("save").status == 0
        assert small_disk.contents() == BEFORE.encode()
        if saved:
            small_disk.path().write_bytes(b"server: a\n")
            small_disk.client.ok("restore", "-y")
            assert small_disk.contents(".sav") == BEFORE.encode() == small_disk.contents()


def test_a_file_that_cannot_be_deleted_stays_beside_its_new_contents(small_disk, tmp_path):
    """What is a mount point itself can be written but neither deleted nor renamed."""
    small_disk.fill(BEFORE.encode(), 8)
    busy = tmp_path / "busy"
    busy.write_bytes(BEFORE.encode())
    small_disk.namespace.run("mount", "--bind", str(busy), str(small_disk.client.tslnfstab))
    assert small_disk.client.ok("delete_server", "-s", "a") == SUCCEEDED
    assert small_disk.contents() == BEFORE.encode()
    assert small_disk.contents(".bak") == OTHERS.encode()


def test_a_backup_that_cannot_be_renamed_holds_the_new_contents_beside_the_old_file(small_disk, tmp_path):
    small_disk.fill(BEFORE.encode(), 8)
    busy = tmp_path / "busy"
    busy.touch()
    small_disk.path(".bak").touch()
    path = str(small_disk.client.tslnfstab)
    small_disk.namespace.run("mount", "--bind", str(busy), path + ".bak")
    told = f"Error: unable to rename {path}.bak to {path}".encode()
    assert small_disk.client.ok("disablerdma", "-s", "a") == told + SUCCEEDED
    assert small_disk.contents() == BEFORE.encode()
    assert small_disk.contents(".bak") == (block("a") + OTHERS).encode()
