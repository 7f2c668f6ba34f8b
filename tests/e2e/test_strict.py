"""TSLWNFS_STRICT: what those get who want it strict, and that nobody else gets it."""

import os
import stat

import pytest

import servers
from files import digest, make_file
from terminal import Terminal
from texts import UNUSABLE, failed


def strict(*words):
    return {"TSLWNFS_STRICT": ",".join(words)}


def described(root):
    """Every path below root with its mode and, of a file, its content; links count as what they lead to."""
    result = {}
    for folder, directories, names in os.walk(root, followlinks=True):
        for name in (*directories, *names):
            path = os.path.join(folder, name)
            kind = os.stat(path)
            content = None if stat.S_ISDIR(kind.st_mode) else digest(path)
            result[os.path.relpath(path, root)] = (stat.S_IMODE(kind.st_mode), content)
    return result


@pytest.fixture
def tree(tmp_path):
    """Capitals, a link, an empty directory, and modes from secret to executable."""
    root = tmp_path / "Tree"
    for name, mode in (("Sub Dir/Deep", 0o700), ("Empty", 0o755)):
        (root / name).mkdir(parents=True)
        (root / name).chmod(mode)
    for name, mode in (("Secret.KEY", 0o600), ("Run.sh", 0o755), ("Sub Dir/Deep/ReadOnly", 0o444), ("plain", 0o644)):
        make_file(root / name, 40_000).chmod(mode)
    (root / "Link").symlink_to("Run.sh")
    (root / "Sub Dir").chmod(0o750)
    return root


def test_a_tree_goes_up_and_comes_back_identical(server, place, tree, tmp_path):
    server.ok("cp", "-r", tree, place / "Up", env=strict("all"))
    assert described(place.files / "Up") == described(tree)
    server.ok("cp", "-r", place / "Up", tmp_path / "Back", env=strict("all"))
    assert described(tmp_path / "Back") == described(tree)


def test_without_it_names_are_in_lower_case_and_modes_are_the_masks(server, place, tree):
    server.ok("cp", "-r", tree, place / "Up")
    assert not (place.files / "Up").exists()
    assert (place.files / "up").is_dir()
    assert not (place.files / "up" / "secret.key").exists()  # asked for by a name that is not there


@pytest.mark.parametrize("to", ["server", "local"])
def test_modes_follow_the_source(server, place, tmp_path, to):
    target = place.files if to == "server" else tmp_path
    for mode in (0o600, 0o755, 0o666, 0o444):
        source = make_file(tmp_path / "source", 100_000)
        source.chmod(mode)
        for command in ("cp", "mv"):
            make_file(target / "old", 10)
            for name in ("new", "old"):
                copy = tmp_path / "kept"
                copy.write_bytes(source.read_bytes())
                copy.chmod(mode)
                destination = f"{place.remote}/{name}" if to == "server" else target / name
                server.ok(command, copy, destination, env=strict("modes"))
                assert stat.S_IMODE((target / name).stat().st_mode) == mode & ~0o002, oct(mode)
                assert digest(target / name) == digest(source)
                (target / name).unlink()
                copy.unlink(missing_ok=True)
        source.unlink()


def test_modes_leave_devices_alone(local, tmp_path):
    before = os.stat("/dev/null").st_mode
    (tmp_path / "link").symlink_to("/dev/null")
    source = make_file(tmp_path / "secret", 5)
    source.chmod(0o600)
    local.ok("cp", source, tmp_path / "link", env=strict("all"))
    assert os.stat("/dev/null").st_mode == before


def test_names_keep_their_case_and_match_without_regard_to_it(server, place, tmp_path):
    for name in ("One.TXT", "two.txt", "Three.dat"):
        make_file(tmp_path / name, 5)
    server.ok("cp", tmp_path / "*.tXt", place / "*.Bak", env=strict("names"))
    assert sorted(os.listdir(place.files)) == ["One.Bak", "two.Bak"]
    server.ok("rm", place / "*.BAK", env=strict("names"))
    assert os.listdir(place.files) == []


def test_the_status_tells_of_a_failure_inside(faulty, tmp_path):
    server = faulty()
    tree = tmp_path / "tree"
    (tree / "inner").mkdir(parents=True)
    (tree / "empty").mkdir()
    make_file(tree / "inner" / "file", 5)
    make_file(tree / "zzz", 5)
    assert server.client.run("cp", "-r", tree, server / "whole", env=strict("status")).status == 0
    (tree / "inner" / "none").symlink_to("nowhere")
    assert server.client.run("cp", "-r", tree, server / "one").status == 0
    assert server.client.run("cp", "-r", tree, server / "two", env=strict("status")).status == 1
    assert (server.files / "two" / "zzz").exists()
    assert server.client.run("rm", "-r", server / "whole", env=strict("status")).status == 0
    assert not (server.files / "whole").exists()


def mount_over_local(server, folder):
    """The mount point is a local directory, too."""
    folder.mkdir()
    addresses = " ".join(server.daemon.addresses)
    server.client.tslnfstab.write_text(servers.server_block("faulty", addresses, [("/export", str(folder))]))
    return folder


@pytest.mark.parametrize("command", ["cp", "dd"])
def test_what_the_server_refuses_stays_off_the_local_disk(faulty, tmp_path, command):
    server = faulty()
    mount = mount_over_local(server, tmp_path / "mount")
    server.fault("read-only")
    source, copy = make_file(tmp_path / "source", 1000), mount / "copy"
    words = ["cp", source, copy] if command == "cp" else ["dd", "-if", source, "-of", copy]
    trace = tmp_path / "trace"
    traced = ["-trace", trace, "-level", "3", "3", "3", "3"]
    assert server.client.run(*traced, *words, env=strict("location")).status == 1
    assert not copy.exists()
    assert b"TWNFS-65029" in trace.read_bytes()
    assert server.client.run(*words).status == 0
    assert copy.exists()


def test_what_belongs_to_an_unusable_server_stays_off_the_local_disk(own, tmp_path):
    mount = tmp_path / "mount"
    mount.mkdir()
    own.tslnfstab.write_text(
        servers.server_block("bad", "127.0.0.1:1", [("/export", str(mount))]) + "nconnect: 99\n"
    )
    source = make_file(tmp_path / "source", 1000)
    assert own.run("cp", source, mount / "copy", env=strict("location")).status == 1
    assert not (mount / "copy").exists()
    assert own.run("cp", source, tmp_path / "copy", env=strict("location")).status == 0


def test_a_path_that_was_resolved_in_part_is_refused(local, tmp_path):
    make_file(tmp_path / "source", 5)
    (tmp_path / "here").mkdir()
    cut = local.run("cp", "../source2", "../no/such/name", cwd=tmp_path / "here", env=strict("location"))
    assert (cut.status, cut.out) == (4, UNUSABLE)
    local.ok("cp", tmp_path / "source", "../new", cwd=tmp_path / "here", env=strict("location"))
    assert digest(tmp_path / "new") == digest(tmp_path / "source")
    local.ok("cp", tmp_path / "source", "../cut/short", cwd=tmp_path / "here")
    assert digest(tmp_path / "cut") == digest(tmp_path / "source")


def test_unknown_options_and_unreadable_numbers_are_errors(own, tmp_path):
    for words in (["ls", "-lX", tmp_path], ["find", tmp_path, "-maxdepth", "2x"], ["createtslnfstab", "-s", "s", "-u", "oracle"]):
        assert own.run(*words).status == 0, words
        done = own.run(*words, env=strict("options"))
        assert done.status == 1 and b"TWNFS-65006" in done.out, words


def test_it_is_suggested_where_it_would_have_helped(faulty, tmp_path):
    server = faulty()
    make_file(server.files / "Big.DBF", 5)
    shown = Terminal(server.client).run("cat", server / "*.dbf")
    assert shown.said[-1].endswith("; its name holds capitals; TSLWNFS_STRICT=names keeps them")
    mount = mount_over_local(server, tmp_path / "mount")
    server.fault("read-only")
    shown = Terminal(server.client).run("cp", make_file(tmp_path / "source", 5), mount / "copy")
    assert "TSLWNFS_STRICT=location" in shown.said[-1]


def test_a_word_that_is_none_is_warned_of(own, tmp_path):
    shown = Terminal(own).run("ls", tmp_path, env=strict("nmaes", "status"))
    assert shown.said == [
        'tslwnfs: warning: TSLWNFS_STRICT: "nmaes" is none of names, location, status, options, modes, all'
    ]
    assert own.run("ls", tmp_path / "none", env=strict("nmaes")).out.endswith(failed(1))
