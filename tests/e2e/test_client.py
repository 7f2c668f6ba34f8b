"""Enabling, disabling, saving and restoring the client, asking about its state, and showmount."""

import re
import socket

import pytest
import servers
from texts import SUCCEEDED, failed, message

ENABLED = message(65009, "The Wren NFS client is enabled.")
NOT_ENABLED = message(65010, "The Wren NFS client is not enabled.")
ON_MOUNT = message(65071, "The path lies on a Wren NFS mount.")
NOT_ON_MOUNT = message(65072, "The path does not lie on a Wren NFS mount.")


def library_copy(client):
    return client.home / "rdbms/lib/tdm/libnfstdm.so"


def saved_copy(client):
    return client.tslnfstab.with_name("tslnfstab.sav")


def overwrite_question(client):
    return f"File {client.tslnfstab} already exist do you want to overwrite ? :( y/n)\n".encode()


def test_a_client_is_enabled_and_disabled(own):
    assert own.run("iswnfsenabled", own.home).out == NOT_ENABLED
    assert own.ok("wnfsenable") == SUCCEEDED
    assert library_copy(own).read_bytes() == (own.home / "lib/libnfstdm.so").read_bytes()
    assert own.tslnfstab.read_bytes() == b""
    # An empty configuration is none.
    assert own.run("iswnfsenabled", own.home).out == NOT_ENABLED
    own.ok("createtslnfstab", "-s", "a")
    assert own.ok("iswnfsenabled", own.home) == ENABLED

    assert own.ok("wnfsdisable") == SUCCEEDED
    assert not library_copy(own).exists()
    assert own.run("iswnfsenabled", own.home).out == NOT_ENABLED
    assert own.ok("wnfsdisable", "-deletetslnfstab", "-deletetdmdir") == SUCCEEDED
    assert not own.tslnfstab.exists()
    assert not library_copy(own).parent.exists()
    assert own.ok("wnfsdisable", "-deletetslnfstab", "-deletetdmdir") == SUCCEEDED


@pytest.mark.parametrize("answer, emptied", [(b"y\n", True), (b"n\n", False), (b"Y\n", False), (b"", False)])
def test_enabling_asks_before_it_empties_the_configuration(own, answer, emptied):
    own.tslnfstab.write_text("server: a\n")
    assert own.ok("wnfsenable", stdin=answer) == overwrite_question(own) + SUCCEEDED
    assert own.tslnfstab.read_text() == ("" if emptied else "server: a\n")
    assert library_copy(own).exists()


def test_enabling_with_a_yes_on_the_line_does_not_ask(own):
    own.tslnfstab.write_text("server: a\n")
    assert own.ok("wnfsenable", "-y") == SUCCEEDED
    assert own.tslnfstab.read_text() == ""


def test_enabling_needs_the_library(own):
    (own.home / "lib/libnfstdm.so").rename(own.home / "libnfstdm.so")
    run = own.run("wnfsenable", env={"LD_LIBRARY_PATH": own.home})
    assert (run.status, run.out) == (1, failed(1))


def test_questions_stay_on_standard_output_when_there_is_a_log(own, tmp_path):
    log = tmp_path / "log"
    own.tslnfstab.write_text("server: a\n")
    assert own.ok("-log", log, "wnfsenable", stdin=b"n") == overwrite_question(own)
    assert log.read_bytes() == SUCCEEDED


def test_a_directory_with_other_files_is_not_removed(own):
    own.ok("wnfsenable")
    (library_copy(own).parent / "other").touch()
    run = own.run("wnfsdisable", "-deletetdmdir")
    assert (run.status, run.out) == (1, failed(1))
    assert not library_copy(own).exists()


def test_a_configuration_is_saved_and_restored(own):
    saved = saved_copy(own)
    run = own.run("save")
    assert (run.status, run.out) == (1, failed(1))
    assert not saved.exists()
    own.tslnfstab.write_bytes(b"server: a\xff\n" * 100)
    assert own.ok("save") == SUCCEEDED
    own.tslnfstab.unlink()
    assert own.ok("restore") == SUCCEEDED
    assert own.tslnfstab.read_bytes() == saved.read_bytes() == b"server: a\xff\n" * 100


def test_saving_and_restoring_ask_before_they_overwrite(own):
    saved = saved_copy(own)
    own.tslnfstab.write_text("current")
    saved.write_text("old")
    save_question = f"File {saved} already exist  do you want to overwrite ?( y/n)\n".encode()
    restore_question = f"tslnfstab file already exists, do you want to overwrite {own.tslnfstab} ? : (Yes/No)\n".encode()
    for word, question in (("save", save_question), ("restore", restore_question)):
        for answer in (b"n\n", b"Yes\n", b""):
            run = own.run(word, stdin=answer)
            assert (run.status, run.out) == (1, question + failed(1))
            assert (own.tslnfstab.read_text(), saved.read_text()) == ("current", "old")
    assert own.ok("restore", stdin=b"y\n") == restore_question + SUCCEEDED
    assert own.tslnfstab.read_text() == "old"
    own.tslnfstab.write_text("new")
    assert own.ok("save", "-y") == SUCCEEDED
    assert saved.read_text() == "new"


def test_a_path_is_told_to_lie_on_a_mount_or_not(own):
    own.ok("wnfsenable")
    own.ok("createtslnfstab", "-s", "a", "-em", "/e,/U02/Data;/f,/secure,sys")
    # A mount point that a security setting follows is not told apart from it, and so is not found.
    for path, verdict in [
        ("/u02/data/file", ON_MOUNT),
        ("/u02/database", ON_MOUNT),
        ("\\U02\\data", ON_MOUNT),
        ("/u03", NOT_ON_MOUNT),
        ("/secure/file", NOT_ON_MOUNT),
    ]:
        run = own.run("ispathonwnfs", "-path", path, "-oh", own.home)
        assert (run.status, run.out) == (0 if verdict == ON_MOUNT else 1, ENABLED + verdict)


def test_a_client_that_is_not_enabled_gives_two_verdicts(own):
    run = own.run("isPathOnWNFS", "-oh", own.home, "-path", "/u02")
    assert (run.status, run.out) == (1, NOT_ENABLED + NOT_ON_MOUNT)


# ---- showmount


def table(*rows):
    return "".join(f"{directory:<34} {groups}\n" for directory, groups in rows).encode()


def test_the_exports_of_a_server_are_listed_with_their_groups(own, tmp_path):
    words = ["--group", "admin", "--group", "web", "--export", f"/data={tmp_path}", "--export", f"/more={tmp_path},ro"]
    daemon = servers.LoopnfsdProcess(own.home, *words)
    try:
        expected = table(("/data", "admin ,admin ,web "), ("/more", "admin ,admin ,web "))
        assert own.ok("showmount", "-e", daemon.address) == expected + SUCCEEDED
        log = tmp_path / "log"
        assert own.ok("-log", log, "showmount", daemon.address) == b""
        assert log.read_bytes() == expected + SUCCEEDED
    finally:
        daemon.close()


def test_a_list_of_many_exports_is_shown_whole(own, tmp_path):
    names = [f"/export/{'n' * 20}{number}" for number in range(300)]
    words = [word for name in names for word in ("--export", f"{name}={tmp_path}")]
    daemon = servers.LoopnfsdProcess(own.home, *words)
    try:
        assert own.ok("showmount", daemon.address) == table(*((name, "(everyone)") for name in names)) + SUCCEEDED
    finally:
        daemon.close()


@pytest.mark.parametrize("address", ["127.0.0.1", "::1"])
@pytest.mark.kinds("loopnfsd", "ganesha")
def test_a_real_server_is_found_by_its_portmapper(server, tmp_path, address):
    if server.name != "ganesha":
        pytest.skip("loopnfsd is not registered with a portmapper")
    out = server.ok("showmount", "-e", address)
    exports = [line.split()[0].decode() for line in out[: -len(SUCCEEDED)].splitlines()]
    configured = re.findall(r"^export: (\S+)", server.client.tslnfstab.read_text(), re.MULTILINE)
    assert out.endswith(SUCCEEDED)
    assert exports == configured
    log = tmp_path / "log"
    assert server.ok("-log", log, "showmount", address) == b""
    assert log.read_bytes() == out


def test_a_server_that_is_not_there_gives_different_numbers_on_the_two_outputs(own, tmp_path):
    run = own.run("showmount", "127.0.0.1:1")
    assert (run.status, run.out) == (1, b"failed, error code:1\n" + failed(1))
    log = tmp_path / "log"
    run = own.run("-log", log, "showmount", "127.0.0.1:1")
    assert (run.status, run.out) == (1, b"")
    assert log.read_bytes() == b"failed, error code:0\n" + failed(1)


def test_showmount_waits_as_long_as_mnt_timeout_of_the_server_says(own, tmp_path):
    with socket.socket() as silent:
        silent.bind(("127.0.0.1", 0))
        silent.listen()
        address = "127.0.0.1:%d" % silent.getsockname()[1]
        own.tslnfstab.write_text(servers.server_block("nas1", address, [("/e", "/m")], mnt_timeout=1))
        trace = tmp_path / "trace"
        assert own.run("-trace", trace, "-level", "1", "1", "1", "1", "showmount", address).status == 1
    assert "EXPORT: no answer within 1 second" in trace.read_text()


def test_the_exports_of_a_server_of_version_4_alone_are_not_listed_but_what_leads_to_them(own, tmp_path):
    for name in ("data", "backup"):
        (tmp_path / name).mkdir()
    exports = [word for name in ("data", "backup") for word in ("--export", f"/{name}={tmp_path / name}")]
    daemon = servers.LoopnfsdProcess(own.home, "--versions", "4", *exports)
    try:
        run = own.run("showmount", "-e", daemon.address, env={"TSLWNFS_TERMINAL": "reasons"})
    finally:
        daemon.close()
    assert (run.status, run.out) == (1, b"failed, error code:1\n" + failed(1))
    holds = re.search(rb"it speaks NFSv4, which has no list of exports; the server's root holds: (.*)\n", run.err)
    assert sorted(holds[1].split(b", ")) == [b"/backup", b"/data"]


def test_showmount_without_a_server_fails(own):
    run = own.run("showmount")
    assert (run.status, run.out) == (1, failed(1))
