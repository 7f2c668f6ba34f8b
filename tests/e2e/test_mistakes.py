"""What people mistype, and what they read then. Standard output and the status stay those of a command that is carried
out as it was read; TSLWNFS_STRICT=options makes an error of it."""

import os
import re
import socket

import pytest

import servers
from files import digest, make_file
from terminal import Terminal
from texts import SUCCEEDED, copy_banner, failed

OPTIONS = {"TSLWNFS_STRICT": "options"}
ALWAYS = {"TSLWNFS_TERMINAL": "always"}


def warnings(run):
    """What a person reads of a finished run that took its standard error for a terminal."""
    return [line.removeprefix("tslwnfs: ") for line in run.err.decode().splitlines()]


# What is typed, the status, and what is read. {0} is a local directory with the files a.dbf, b.dbf and c.dbf.
WORDS = {
    "find -size with a unit": (["find", "{0}", "-size", "+100M"], 0, ["find: -size +100M was read as 100 bytes"]),
    "find -empty": (["find", "{0}", "-empty"], 0, ["find: -empty is not known and was skipped"]),
    "find -not": (["find", "{0}", "-not", "-name", "a*"], 0, ["find: -not is not known and was skipped"]),
    "find -delete": (["find", "{0}", "-delete"], 0, ["find: -delete is not known and was skipped"]),
    "find -mtime": (
        ["find", "{0}", "-mtime", "+30"],
        0,
        ["find: -mtime is not known and was skipped", "find: +30 is one word too many and was skipped"],
    ),
    "find -type": (["find", "{0}", "-type", "file"], 0, ["find: -type file was read as f"]),
    "ls -h": (["ls", "-lh", "{0}"], 0, ["ls: -h is not known and was skipped"]),
    "dd -count": (
        ["dd", "-if", "{0}/a.dbf", "-of", "{0}/new", "-count", "4g"],
        0,
        ["dd: -count 4g was read as 0"],
    ),
}


@pytest.fixture
def folder(tmp_path):
    folder = tmp_path / "folder"
    folder.mkdir()
    for name in ("a.dbf", "b.dbf", "c.dbf"):
        make_file(folder / name, 5000)
    return folder


@pytest.mark.parametrize("typed", WORDS)
def test_words_and_numbers_that_are_read_otherwise_are_warned_of(local, folder, typed):
    words, status, read = WORDS[typed]
    words = [word.format(folder) for word in words]
    piped = local.run(*words)
    (folder / "new").unlink(missing_ok=True)
    shown = local.run(*words, env=ALWAYS)
    assert warnings(shown) == ["warning: " + line for line in read]
    assert (shown.status, shown.out) == (piped.status, piped.out)
    assert (piped.status, piped.err) == (status, b"")
    (folder / "new").unlink(missing_ok=True)
    strict = local.run(*words, env={**OPTIONS, **ALWAYS})
    assert strict.status == 1 and b"TWNFS-65006" in strict.out
    assert not (folder / "new").exists()
    assert len(warnings(strict)) == 1 and "(TSLWNFS_STRICT)" in warnings(strict)[0]


def test_find_says_what_it_skips_before_it_runs_a_command(local, folder, tmp_path):
    words = ["find", folder, "-type", "f", "-not", "-name", "a*", "-exec", "rm", "{}"]
    assert local.run(*words, env=OPTIONS).status == 1
    assert len(os.listdir(folder)) == 3
    shown = Terminal(local).run("find", folder, "-not", "-exec", "echo", "ran")
    assert shown.sent.index("find: -not is not known and was skipped") < shown.sent.index("ran")


def test_many_files_that_become_one_are_warned_of(faulty, folder):
    server = faulty()
    for name in ("a.dbf", "b.dbf", "c.dbf"):
        make_file(server.files / name, 3000)
    done = server.client.run("cp", server / "*.dbf", folder / "plain", env=ALWAYS)
    assert done.status == 0
    assert warnings(done) == [
        f"warning: {folder}/plain already took another file of this copy, and is overwritten; "
        f"write {folder}/plain/* for a directory"
    ]
    (folder / "plain").unlink()
    done = server.client.run("cp", server / "*.dbf", folder / "plain", env={**OPTIONS, **ALWAYS})
    assert done.status == 1
    assert done.out.count(SUCCEEDED) == 1 and done.out.count(failed(1)) == 2
    (folder / "real").mkdir()
    done = server.client.run("cp", server / "*.dbf", folder / "real", env={**OPTIONS, **ALWAYS})
    assert (done.status, done.err) == (0, b"")
    assert sorted(os.listdir(folder / "real")) == ["a.dbf", "b.dbf", "c.dbf"]


def test_a_slash_behind_what_is_no_directory_is_warned_of(faulty, folder):
    server = faulty()
    for target in (server.remote, folder.parent):
        done = server.client.run("cp", folder / "a.dbf", f"{target}/new/", env=OPTIONS)
        assert done.status == 1
        done = server.client.run("cp", folder / "a.dbf", f"{target}/new/", env=ALWAYS)
        assert done.status == 0
        assert warnings(done) == [f"warning: {target}/new is no directory: a file of that name was made"]
        done = server.client.run("cp", "-r", folder, f"{target}/tree/", env={**OPTIONS, **ALWAYS})
        assert (done.status, done.err) == (0, b"")
    assert digest(server.files / "new") == digest(folder / "a.dbf")


def test_a_destination_with_capitals_is_warned_of_where_it_exists(faulty, folder):
    server = faulty()
    (server.files / "Backup").mkdir()
    done = server.client.run("cp", folder / "a.dbf", server / "Backup", env=ALWAYS)
    assert done.out == copy_banner(folder / "a.dbf", server / "backup") + SUCCEEDED
    assert warnings(done) == [
        f"warning: {server.remote}/Backup: the last name is put in lower case, so that it goes to {server.remote}/backup; "
        f"write {server.remote}/Backup/NAME, or set TSLWNFS_STRICT=names"
    ]
    done = server.client.run("cp", folder / "a.dbf", server / "Backup/x", env=ALWAYS)
    assert (done.status, done.err) == (0, b"")


@pytest.mark.parametrize("where", ["server", "local"])
def test_a_name_that_was_stored_in_lower_case_is_named(faulty, tmp_path, where):
    server = faulty()
    make_file((server.files if where == "server" else tmp_path) / "full.dbf", 10)
    folder = server.remote if where == "server" else str(tmp_path)
    for words in (["cat", f"{folder}/Full.DBF"], ["cp", f"{folder}/Full.DBF", str(tmp_path / "copy")]):
        done = server.client.run(*words, env=ALWAYS)
        assert done.status == 1
        assert warnings(done)[-1].endswith("; full.dbf is there: names that the program builds are in lower case")


def test_a_recursive_copy_says_what_is_missing(faulty, tmp_path):
    server = faulty()
    tree = tmp_path / "tree"
    (tree / "sub").mkdir(parents=True)
    for name in ("README", "sub/Full.DBF", "sub/plain", "other"):
        make_file(tree / name, 10)
    shown = Terminal(server.client).run("cp", "-r", tree, server / "copy")
    assert shown.status == 0
    assert re.fullmatch(
        r"tslwnfs: warning: 2 of 4 files were not copied: (README, sub/Full.DBF|sub/Full.DBF, README); "
        "names are put in lower case: TSLWNFS_STRICT=names keeps them",
        shown.said[-1],
    )
    shown = Terminal(server.client).run("cp", "-r", tree, server / "whole", env={"TSLWNFS_STRICT": "names"})
    assert (shown.status, shown.said) == (0, [])
    (tree / "sub" / "dangling").symlink_to("nowhere")
    shown = Terminal(server.client).run("cp", "-r", tree, server / "again", env={"TSLWNFS_STRICT": "names,status"})
    assert shown.status == 1
    assert shown.said[-1] == "tslwnfs: warning: 1 of 5 files was not copied: sub/dangling"


def test_mount_points_with_capitals_are_warned_of(own):
    read = "mount point /mnt/Backup: a copy to it by this name goes elsewhere"
    for words in (["createtslnfstab", "-s", "n", "-em", "/e,/mnt/Backup"], ["mount", "/e", "/mnt/Backup", "-s", "n"]):
        done = own.run(*words, env=ALWAYS)
        assert done.status == 0
        assert any(line.startswith("warning: " + read) for line in warnings(done))
        own.tslnfstab.unlink()


def test_a_block_that_loses_exports_is_warned_of(own):
    own.ok("createtslnfstab", "-s", "nas1", "-em", "/vol/a,/mnt/a;/vol/b,/mnt/b")
    done = own.run("createtslnfstab", "-s", "nas1", "-em", "/vol/c,/mnt/c;/vol/b,/mnt/b", env=ALWAYS)
    assert done.status == 0
    assert warnings(done) == [
        "warning: the block of server nas1 is replaced, and these mount points are gone: /mnt/a; all exports of a "
        "server go into one -em, or are added by mount"
    ]
    done = own.run("createtslnfstab", "-s", "nas1", "-em", "/vol/c,/mnt/c;/vol/b,/mnt/b;/v,/mnt/v", env=ALWAYS)
    assert (done.status, done.err) == (0, b"")


@pytest.mark.parametrize("words", [["-t", "nfs", "h:/e", "/m"], ["h:/e", "/m"]])
def test_a_mount_as_the_system_knows_it_is_told_the_line_that_works(own, words):
    done = own.run("mount", *words, env=ALWAYS)
    works = 'tslwnfs createtslnfstab -s h -em "/e,/m"'
    assert any(works in line for line in warnings(done))
    done = own.run("mount", *words, env={**OPTIONS, **ALWAYS})
    assert done.status == 1 and b"TWNFS-65006" in done.out
    assert any(works in line for line in warnings(done))


# What comes in a pipe, and what dd makes of it.
PIPED = {
    "rubbish": b"some.file\0\0\0ustar",
    "digits and rubbish": b"12ab\n",
    "nothing but a line": b"\n\nabc",
}


@pytest.mark.parametrize("data", PIPED)
def test_piped_data_are_not_taken_for_a_size(faulty, tmp_path, data):
    server = faulty()
    for target in (server / "out", tmp_path / "out"):
        done = server.client.run("dd", "-of", target, stdin=PIPED[data], env=ALWAYS)
        assert done.status == 1
        assert done.out.endswith(failed(1))
        assert "TSLWNFS_STRICT=options reads it to its end" in warnings(done)[-1]
    assert not (tmp_path / "out").exists() and not (server.files / "out").exists()


@pytest.mark.parametrize("size", [0, 1, 1000, 1024, 3_000_001])
def test_piped_data_are_read_to_their_end_for_who_wants_it_strict(faulty, tmp_path, size):
    server = faulty()
    data = make_file(tmp_path / "data", size).read_bytes()
    for target in (server / "out", tmp_path / "out"):
        done = server.client.run("dd", "-of", target, stdin=data, env=OPTIONS)
        assert done.status == 0
        assert b"enter the maximum" not in done.out
    assert (server.files / "out").read_bytes() == data
    assert (tmp_path / "out").read_bytes() == data
    assert server.client.run("dd", "-of", server / "out", "-bs", "1m", stdin=data[:7], env=OPTIONS).status == 0
    assert (server.files / "out").read_bytes() == data[:7]


@pytest.mark.parametrize("size", [0, 1, 1000, 3_000_001])
@pytest.mark.parametrize("name", ["/dev/stdout", "/dev/fd/1"])
def test_the_bare_bytes_go_to_standard_output_for_who_wants_it_strict(faulty, tmp_path, name, size):
    server = faulty()
    data = make_file(server.files / "data", size).read_bytes()
    (tmp_path / "data").write_bytes(data)
    for source in (server / "data", tmp_path / "data"):
        for block in ("1000", "1m"):
            assert server.client.ok("dd", "-if", source, "-of", name, "-bs", block, env=OPTIONS) == data
    assert server.client.run("dd", "-of", name, "-bs", "1000", stdin=data, env=OPTIONS).out == data
    missing = server.client.run("dd", "-if", server / "none", "-of", name, env={**OPTIONS, **ALWAYS})
    assert (missing.status, missing.out) == (1, b"") and len(warnings(missing)) == 1


def test_standard_output_has_more_than_the_data_for_everybody_else(faulty):
    server = faulty()
    data = make_file(server.files / "data", 5000).read_bytes()
    plain = server.client.ok("dd", "-if", server / "data", "-of", "/dev/stdout")
    assert data in plain and b"DD:\n" in plain and SUCCEEDED in plain


def test_bare_bytes_go_behind_what_stands_in_a_file_already(faulty, tmp_path):
    server = faulty()
    data = make_file(server.files / "data", 5000).read_bytes()
    script = '"$0" dd -if "$1" -of /dev/stdout >> "$2" && "$0" -log "$3" dd -if "$1" -of /dev/stdout -count 1024'
    out, log = tmp_path / "out", tmp_path / "log"
    out.write_bytes(b"before")
    program = server.client.home / "bin" / "tslwnfs"
    done = server.client.run("-c", script, program, server / "data", out, log, program="/bin/sh", env=OPTIONS)
    assert (done.status, done.out) == (0, data[:1024])
    assert out.read_bytes() == b"before" + data
    assert SUCCEEDED in log.read_bytes()


# What is typed, and what stands behind the usage text.
USAGE = {
    "unknown command": (["cpoy", "a", "b"], ["cpoy is no command; did you mean copy?"]),
    "another one": (["lst", "a"], ["lst is no command; did you mean ls?"]),
    "nothing like it": (["frobnicate"], ["frobnicate is no command"]),
    "a command in capitals": (["LS", "a"], ["LS is no command; did you mean ls?"]),
    "an option in place of a command": (["-v"], ["-v is no command"]),
    "help on an unknown command": (["help", "cpoy"], ["cpoy is no command; did you mean copy?"]),
    "option at the end": (["cp", "a", "b", "-r"], ["-r stands behind the operands"]),
    "expanded wildcard": (["cp", "a.dbf", "b.dbf", "c.dbf"], ["one operand too many: c.dbf (quote wildcards)"]),
    "value missing": (["enablerdma", "-s"], ["-s lacks its value"]),
}


# What lacks something, or is written as another program takes it, and what is read: the reason, if there is more to say
# than what the command takes, and that.
INCOMPLETE = {
    "no operand": (["cp"], ["The first operand is missing", "copy|cp [-i] [-r] SOURCE DESTINATION"]),
    "one operand of two": (["mv", "a"], ["The second operand is missing", "move|mv [-i] SOURCE DESTINATION"]),
    "an option and no operand": (["rm", "-r"], ["The first operand is missing", "del|delete|rm [-i] [-r] FILE"]),
    "no path": (["stat"], ["The first operand is missing", "stat [-f] [-l] [-c FORMAT] PATH"]),
    "one of a mount's two": (["mount", "/e"], ["The second operand is missing", "mount EXPORT MOUNTPOINT [-f]"]),
    "no server for RDMA": (["enablerdma"], ["enablerdma -s SERVER [-p PORT]"]),
    "no address": (["getsubnetmask"], ["getsubnetmask -ip ADDRESS"]),
    "half of a script's options": (["mount_script", "-e", "/e"], ["mount_script -e EXPORT -m MOUNTPOINT"]),
    "no server to show": (["showmount", "-e"], ["showmount [-e] SERVER"]),
    "a letter of another showmount": (["showmount", "-a", "h"], ["showmount [-e] SERVER"]),
    "no path to look for": (["isPathOnWNFS"], ["isPathOnWNFS -oh HOME -path PATH"]),
    "no server to describe": (["createtslnfstab"], ["-s SERVER is missing"]),
    "dd alone": (["dd"], ["dd [-if FILE] [-of FILE]"]),
    "dd as the system's": (
        ["dd", "if=a.dbf", "of=b"],
        ["if=a.dbf is no option of this command; write -if a.dbf", "dd [-if FILE] [-of FILE]"],
    ),
    "dd with operands": (["dd", "a", "b"], ["a is no option of this command", "dd [-if FILE] [-of FILE]"]),
    "dd without a value": (["dd", "-if"], ["-if lacks its value", "dd [-if FILE] [-of FILE]"]),
    "help as of other programs": (["--help"], ["help COMMAND tells what a command takes"]),
    "its letter": (["-h"], ["help COMMAND tells what a command takes"]),
    "nothing at all": ([], ["help COMMAND tells what a command takes"]),
}


@pytest.mark.parametrize("typed", INCOMPLETE)
def test_what_lacks_something_is_told_with_what_the_command_takes(own, typed):
    words, read = INCOMPLETE[typed]
    piped = own.run(*words)
    assert (piped.status, piped.err) == (1, b"")
    shown = own.run(*words, env=ALWAYS)
    assert (shown.status, shown.out) == (1, piped.out)
    assert [line.startswith(begin) for line, begin in zip(warnings(shown), read)] == [True] * len(read), warnings(shown)


def test_what_is_missing_is_told_in_other_languages(local):
    shown = local.run("dd", "if=a.dbf", env={**ALWAYS, "LC_ALL": "de_DE.UTF-8"})
    assert warnings(shown)[0] == "if=a.dbf ist keine Option dieses Befehls; -if a.dbf schreiben"


def test_permissions_of_what_is_no_directory_are_not_set(own, folder):
    own.tslnfstab.write_text("")
    done = own.run("setattr", folder / "a.dbf", env=ALWAYS)
    assert (done.status, warnings(done)) == (1, [f"{folder}/a.dbf is no directory"])


def test_why_the_root_is_no_operand_is_told(own):
    own.tslnfstab.write_text("")
    done = own.run("ls", "/", env=ALWAYS)
    assert (done.status, warnings(done)) == (4, ["/ is no entry of a directory"])


def test_a_server_that_is_down_is_told_although_the_mount_point_has_capitals(own, tmp_path):
    (tmp_path / "mnt").mkdir()
    with socket.socket() as closed:  # bound, and nobody listens
        closed.bind(("127.0.0.1", 0))
        address = "127.0.0.1:%d" % closed.getsockname()[1]
        mounts = [("/export", f"{tmp_path}/Mnt")]
        own.tslnfstab.write_text(servers.server_block("down", address, mounts, mnt_timeout=1))
        done = own.run("ls", f"{tmp_path}/Mnt", env=ALWAYS)
    assert done.status != 0
    assert warnings(done)[-1].endswith("; is the server up, and is its address in tslnfstab right?")


@pytest.mark.parametrize("typed", USAGE)
def test_a_usage_error_says_what_was_wrong_behind_the_usage_text(local, typed):
    words, read = USAGE[typed]
    piped = local.run(*words)
    assert (piped.status, piped.err) == (1, b"") and b"TWNFS-65006" in piped.out
    shown = local.run(*words, env=ALWAYS)
    assert (shown.status, shown.out) == (1, piped.out)
    assert warnings(shown) == read
    on_terminal = Terminal(local).run(*words)
    assert on_terminal.sent.index("TWNFS-65006") < on_terminal.sent.index(read[0])


def test_a_command_without_a_mistake_is_told_nothing_about_itself(local):
    assert warnings(local.run("nfsids", env=ALWAYS)) == []


def test_a_server_that_is_not_named_is_asked_for(own):
    for command in ("display_server", "delete_server"):
        done = own.run(command, env=ALWAYS)
        assert (done.status, warnings(done)) == (1, ["-s SERVER is missing"])


@pytest.mark.parametrize("words", [["cp", "--help"], ["help", "cp"], ["copy", "--help"], ["?", "copy"]])
def test_help_on_a_command_tells_its_options_behind_the_usage_text(local, words):
    usage = local.run("help" if words[0] in ("help", "?") else "frobnicate")
    piped = local.run(*words)
    assert (piped.status, piped.out, piped.err) == (1, usage.out, b"")
    shown = local.run(*words, env=ALWAYS)
    assert (shown.status, shown.out) == (1, usage.out)
    assert warnings(shown)[0] == "copy|cp [-i] [-r] SOURCE DESTINATION"
    assert any(line.startswith("-i  ") for line in warnings(shown))


def test_help_explains_what_stands_before_a_command(local):
    piped = local.run("help")
    assert (piped.status, piped.err) == (1, b"")
    shown = local.run("help", env=ALWAYS)
    assert (shown.status, shown.out) == (1, piped.out)
    read = warnings(shown)
    for word in ("help COMMAND", "-trace FILE", "-level L-5 L-4 L-3 L-2", "-log FILE", "-y"):
        assert any(line.startswith(word + " ") for line in read), word


@pytest.mark.parametrize("command", ["save", "wnfsenable", "umount", "restore", "createtslnfstab"])
def test_help_on_a_command_does_nothing(own, command):
    own.tslnfstab.write_text("server: kept\n")
    before = sorted(os.listdir(own.tslnfstab.parent))
    done = own.run(command, "--help", env=ALWAYS, stdin=b"y\n")
    assert done.status == 1
    assert warnings(done)[0].startswith(command)
    assert own.tslnfstab.read_text() == "server: kept\n"
    assert sorted(os.listdir(own.tslnfstab.parent)) == before


def test_a_path_that_misses_every_mount_point_is_told_where_they_are(own, tmp_path):
    own.tslnfstab.write_text(
        "server: a\nexport: /e mount: /mnt/backup\nexport: /f mount: /mnt/ro\n",
    )
    for words in (["cat", "/mnt/bakup/f"], ["ls", "/mnt/bakup"], ["rm", "/mnt/bakup/f"], ["cp", "/mnt/bakup/f", tmp_path / "f"]):
        done = own.run(*words, env=ALWAYS)
        assert done.status != 0
        assert warnings(done)[-1].endswith("; a local path: the mount points are /mnt/backup, /mnt/ro"), warnings(done)


def test_umount_says_that_nothing_was_changed(own):
    own.ok("createtslnfstab", "-s", "n", "-em", "/e,/m")
    done = own.run("umount", "/m", env=ALWAYS)
    assert done.status == 0
    (said,) = warnings(done)
    assert said == (
        f"tslnfstab is unchanged: what it is without /m stands in {own.tslnfstab}.bakfile, to be put in its place"
    )


def test_mount_says_what_the_library_will_make_of_it(own):
    done = own.run("mount", "/e", "/m", env=ALWAYS)
    assert done.status == 0
    assert warnings(done) == ["warning: tslnfstab, line 2: the mounts that begin here belong to no server"]
    done = own.run("mount", "/e", "/m2", "-s", "n", "-f", env=ALWAYS)
    assert (done.status, done.err) == (0, b"")


def test_mount_says_that_the_paths_of_a_known_server_do_not_count(own):
    own.ok("createtslnfstab", "-s", "nas1", "-lp", "127.0.0.1,127.0.0.1:40123", "-em", "/e,/m")
    done = own.run("mount", "/f", "/m2", "-s", "nas1", env=ALWAYS)
    assert done.status == 0
    assert warnings(done) == [
        "warning: the path lines that nas1 has do not count for /m2; give -p PATH, or name all exports of the server in "
        "one createtslnfstab"
    ]
    for words in (["-s", "nas2"], ["-s", "nas1", "-l", "127.0.0.1", "-p", "127.0.0.1:40123"]):
        done = own.run("mount", "/g", "/m3", *words, env=ALWAYS)
        assert (done.status, done.err) == (0, b"")


def test_wildcards_and_paths_that_are_none_here_are_told(local, folder):
    done = local.run("cat", f"{folder}/?.dbf", env=ALWAYS)
    assert done.status == 4 and warnings(done)[0].endswith("; ? is no wildcard here, use *")
    done = local.run("cat", "../folder/a.dbf", cwd=folder, env=ALWAYS)
    assert done.status == 4 and warnings(done)[0].endswith("; write it in full")


def test_reasons_without_progress_are_for_logs(faulty, tmp_path):
    server = faulty()
    server.fault("rate=2000000")
    make_file(server.files / "big", 5_000_000)
    reasons = {"TSLWNFS_TERMINAL": "reasons"}
    done = server.client.run("cp", server / "big", tmp_path / "copy", env=reasons)
    assert (done.status, done.err) == (0, b"")
    done = server.client.run("cp", server / "none", tmp_path / "none", env=reasons)
    assert done.status == 1 and len(warnings(done)) == 1


def test_a_full_server_is_answered_with_a_command_that_tells_what_is_free(faulty, tmp_path):
    server = faulty()
    server.fault("status=WRITE:NOSPC:*")
    done = server.client.run("cp", make_file(tmp_path / "f", 10), server / "f", env=ALWAYS)
    assert "; tslwnfs stat -f DIRECTORY tells what is free" in warnings(done)[0]
    assert b"free" in server.client.ok("stat", "-f", server.remote)


def test_the_question_of_what_a_server_exports_names_it(faulty):
    server = faulty()
    server.fault("status=MNT:NOENT:*")
    done = server.client.run("ls", server.remote, env=ALWAYS)
    assert warnings(done)[-1].endswith("; does the server export that? tslwnfs showmount -e faulty lists it")
