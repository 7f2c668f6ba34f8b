"""Kerberos: requests that prove who asks and replies that prove who answers, to a server that others wrote."""

import contextlib
import shutil
import signal
import subprocess

import client
import kerberos
import namespace
import pytest
import relay
import tls_front
from certificates import Authority
from files import digest, make_file
from texts import SUCCEEDED

MIB = 1 << 20


@pytest.fixture(scope="module")
def realm(installed_home, tmp_path_factory):
    why = kerberos.why_impossible(installed_home)
    if why:
        pytest.skip(why)
    base = tmp_path_factory.mktemp("kerberos")
    server = kerberos.KerberosGanesha(client.copy_of_home(installed_home, base / "home"), base / "exports")
    yield server
    server.close()


@pytest.fixture(params=[f"{version}-{each}" for version in kerberos.VERSIONS for each in kerberos.SECURITIES])
def mount(request):
    return f"/wnfs-{request.param}"


@pytest.fixture
def folder(realm, request):
    """A directory of the test's own in the export `any`: its name."""
    name = "d" + str(abs(hash(request.node.name)))
    (realm.writable / name).mkdir()
    (realm.writable / name).chmod(0o777)
    return name


def run(realm, *words, **changes):
    return realm.client.run(*words, env={**realm.environment, **changes})


def ok(realm, *words):
    done = run(realm, *words, TSLWNFS_TERMINAL="always")
    assert done.status == 0, (words, done)
    return done.out


def reason(realm, *words, **changes):
    done = run(realm, *words, TSLWNFS_TERMINAL="always", **changes)
    assert done.status != 0, (words, done)
    return done.err.decode()


@pytest.mark.parametrize("size", [0, 1, 3, 4095, 4096, 4097, MIB - 1, MIB, MIB + 1, 5 * MIB + 3])
def test_files_go_there_and_back_byte_for_byte(realm, mount, folder, tmp_path, size):
    source = make_file(tmp_path / "source", size)
    assert ok(realm, "cp", source, f"{mount}/{folder}/copy").endswith(SUCCEEDED)
    assert digest(realm.writable / folder / "copy") == digest(source)
    ok(realm, "cp", f"{mount}/{folder}/copy", tmp_path / "back")
    assert digest(tmp_path / "back") == digest(source)


def test_every_command_works(realm, mount, folder, tmp_path):
    source = make_file(tmp_path / "source", 10000)
    there = f"{mount}/{folder}"
    ok(realm, "mkdir", f"{there}/sub")
    ok(realm, "cp", source, f"{there}/sub/one")
    assert b"one" in ok(realm, "ls", "-l", f"{there}/sub")
    assert source.read_bytes() in ok(realm, "cat", f"{there}/sub/one")
    assert b"one" in ok(realm, "find", there, "-name", "one")
    for command in ("getattr", "fsstat", "fsinfo"):
        ok(realm, command, f"{there}/sub")
    ok(realm, "dd", "-if", f"{there}/sub/one", "-of", f"{there}/two", "-bs", "1k", "-count", "10k")
    assert (realm.writable / folder / "two").stat().st_size == 10000
    ok(realm, "mv", f"{there}/sub/one", f"{there}/three")
    assert digest(realm.writable / folder / "three") == digest(source)
    ok(realm, "rm", f"{there}/three")
    ok(realm, "rmdir", f"{there}/sub")
    assert [each.name for each in (realm.writable / folder).iterdir()] == ["two"]


def test_permissions_figures_and_trees_go_the_same_way(realm, mount, folder, tmp_path):
    there = f"{mount}/{folder}"
    ok(realm, "mkdir", f"{there}/sub")
    answers = b"y\ny\nn\n" * 3
    done = realm.client.run("setattr", f"{there}/sub", stdin=answers, env=realm.environment)
    assert done.status == 0, done
    assert (realm.writable / folder / "sub").stat().st_mode & 0o777 == 0o770
    ok(realm, "stat", f"{there}/sub")
    tree = tmp_path / "tree"
    (tree / "deep" / "deeper").mkdir(parents=True)
    for name, size in (("one", 10), ("deep/two", MIB + 1), ("deep/deeper/three", 0)):
        make_file(tree / name, size)
    ok(realm, "cp", "-r", tree, f"{there}/tree")
    ok(realm, "cp", "-r", f"{there}/tree", tmp_path / "back")
    for name in ("one", "deep/two", "deep/deeper/three"):
        assert digest(tmp_path / "back" / name) == digest(tree / name)
    ok(realm, "rm", "-r", f"{there}/tree")
    assert not (realm.writable / folder / "tree").exists()


@pytest.mark.parametrize("version", kerberos.VERSIONS)
def test_an_export_that_takes_no_sys_gets_the_strongest_it_offers(realm, version, tmp_path):
    source = make_file(tmp_path / "source", 100)
    ok(realm, "cp", source, f"/wnfs-{version}-only/chosen-{version}")
    assert digest(realm.read_only / f"chosen-{version}") == digest(source)
    told = reason(realm, "cp", source, f"/wnfs-{version}-only/other", KRB5CCNAME="FILE:/nonexistent")
    assert "there is no Kerberos ticket" in told


@pytest.mark.parametrize("version", kerberos.VERSIONS)
def test_an_export_that_takes_sys_needs_no_ticket_without_a_security(realm, version):
    assert run(realm, "ls", f"/wnfs-{version}-any", KRB5CCNAME="FILE:/nonexistent").status == 0


@pytest.mark.parametrize("version", kerberos.VERSIONS)
def test_a_security_that_is_not_offered_is_told_with_those_that_are(realm, version):
    told = reason(realm, "ls", f"/wnfs-{version}-wrong")
    assert "is not offered with security sys, only with " in told
    assert "krb5" in told and "krb5p" in told


def test_no_ticket_is_told_with_what_to_try(realm, mount):
    told = reason(realm, "ls", mount, KRB5CCNAME="FILE:/nonexistent")
    assert "there is no Kerberos ticket for nfs@localhost" in told
    assert "get one with kinit" in told
    assert told.count("\n") == 1


SILENT_KDC = """
import signal, socket
listener = socket.create_server(("127.0.0.1", 0))
print(listener.getsockname()[1], flush=True)
caller, _ = listener.accept()
caller.recv(1)
print("asked", flush=True)
signal.pause()
"""


@pytest.fixture
def silent_kdc(realm, tmp_path):
    """A key distribution centre that takes questions and answers none, and a configuration that leads to it."""
    command = [*realm.client.enter, "/usr/bin/python3", "-c", SILENT_KDC]
    process = subprocess.Popen(command, stdout=subprocess.PIPE, text=True, preexec_fn=namespace.die_with_parent)
    port = process.stdout.readline().strip()
    configuration = tmp_path / "krb5.conf"
    configuration.write_text((realm.folder / "krb5.conf").read_text().replace(":8888", f":{port}"))
    yield process, configuration
    namespace.stop(process)
    process.stdout.close()


@pytest.mark.parametrize("name", ["SIGINT", "SIGTERM"])
@pytest.mark.parametrize("words", [("ls", "{mount}"), ("cp", "{local}", "{mount}/copy")], ids=["ls", "cp"])
def test_a_command_that_waits_for_a_ticket_can_be_interrupted(realm, silent_kdc, tmp_path, words, name):
    kdc, configuration = silent_kdc
    (tmp_path / "local").write_bytes(b"content")
    fresh = tmp_path / "ccache"  # with no ticket for the server yet
    realm.realm("kinit", "-c", f"FILE:{fresh}", "alice", input="secret\n")
    process = realm.client.start(
        *(word.format(mount="/wnfs-v3-krb5", local=tmp_path / "local") for word in words),
        env={**realm.environment, "KRB5_CONFIG": configuration, "KRB5CCNAME": f"FILE:{fresh}"},
    )
    assert kdc.stdout.readline() == "asked\n"
    number = getattr(signal, name)
    process.send_signal(number)
    process.communicate(timeout=client.HANG)
    assert process.returncode in (-number, 128 + number)


def test_a_keytab_does_instead_of_a_ticket(realm, mount, tmp_path):
    done = run(
        realm, "ls", mount, KRB5CCNAME=f"FILE:{tmp_path}/new", KRB5_CLIENT_KTNAME=f"FILE:{realm.folder}/alice.keytab"
    )
    assert done.status == 0, done


@pytest.mark.parametrize(
    ("host", "words"),
    [("nowhere", "does not know the service"), ("elsewhere", "security context: the server refuses the identity presented")],
)
@pytest.mark.parametrize("version", kerberos.VERSIONS)
def test_a_ticket_for_another_service_is_told(realm, installed_home, tmp_path, host, words, version):
    other = client.Client(client.copy_of_home(installed_home, tmp_path / "home"), realm.client.enter)
    other.tslnfstab.write_text(realm.tslnfstab(principal_host=host))
    environment = {**realm.environment, "TSLWNFS_TERMINAL": "always"}
    done = other.run("ls", f"/wnfs-{version}-krb5", env=environment)
    assert done.status != 0
    assert words in done.err.decode()


def test_the_lack_of_the_module_is_told_with_the_package(realm, installed_home, tmp_path):
    bare = client.Client(client.copy_of_home(installed_home, tmp_path / "home"), realm.client.enter)
    bare.tslnfstab.write_text(realm.tslnfstab())
    (bare.home / "lib" / "nfstdm-gss.so").unlink()
    done = bare.run("ls", "/wnfs-v3-krb5", env={**realm.environment, "TSLWNFS_TERMINAL": "always"})
    assert done.status != 0
    assert "libgssapi-krb5-2" in done.err.decode()
    assert bare.run("ls", "/wnfs-v3-any", env=realm.environment).status == 0


@pytest.fixture(scope="module")
def authority(tmp_path_factory):
    if shutil.which("openssl") is None:
        pytest.skip("openssl is not installed")
    return Authority(tmp_path_factory.mktemp("tls") / "authority")


def test_tickets_go_by_tls_too(realm, authority, mount, folder, installed_home, tmp_path):
    signed = authority.sign("server")
    with contextlib.closing(tls_front.Front(realm.nfs_port(), signed, enter=realm.client.enter)) as front:
        mine = client.Client(client.copy_of_home(installed_home, tmp_path / "home"), realm.client.enter)
        settings = {"transport_security": "tls", "tls_ca": authority.certificate, "nconnect": 2}
        mine.tslnfstab.write_text(realm.tslnfstab(nfsport=front.port, **settings))
        source, back = make_file(tmp_path / "source", 5 * MIB + 3), tmp_path / "back"
        mine.ok("cp", source, f"{mount}/{folder}/copy", env=realm.environment)
        mine.ok("cp", f"{mount}/{folder}/copy", back, env=realm.environment)
        assert digest(realm.writable / folder / "copy") == digest(source) == digest(back)


class Line:
    """A client that reaches the server through a relay."""

    def __init__(self, realm, home):
        self.client = client.Client(home, realm.client.enter)
        self.relay = relay.Relay(realm.nfs_port(), realm.client.enter)
        self.client.tslnfstab.write_text(realm.tslnfstab(nfsport=self.relay.port))


@pytest.fixture
def line(realm, installed_home, tmp_path):
    made = Line(realm, client.copy_of_home(installed_home, tmp_path / "home"))
    yield made
    made.relay.close()
    realm.kinit()


SIZE = 24 * MIB


OFTEN = {("v3-krb5p", "down"), ("v4-krb5i", "up")}  # of these the others are slow repetitions


@pytest.mark.parametrize(
    ("mounted", "direction"),
    [
        pytest.param(mounted, direction, marks=[] if (mounted, direction) in OFTEN else pytest.mark.slow)
        for mounted in ("v3-krb5i", "v3-krb5p", "v4-krb5", "v4-krb5i")
        for direction in ("up", "down")
    ],
)
def test_a_transfer_outlives_its_ticket(realm, line, folder, tmp_path, mounted, direction):
    source, _, words, copy = transfer(realm, f"/wnfs-{mounted}", folder, tmp_path, direction)
    realm.kinit("-l", "10s")
    process = line.client.start(*words, env=realm.environment)
    line.relay.pass_bytes(SIZE // 3, process)
    realm.await_end_of_ticket()
    realm.kinit()
    line.relay.open()
    done = client.finish(process)
    assert (done.status, done.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED), done.err
    assert digest(copy) == digest(source)
    assert "nfs/localhost" in realm.realm("klist").stdout  # another than the first: kinit begins an empty cache


def test_a_transfer_whose_ticket_is_not_renewed_tells_why_it_ends(realm, line, folder, tmp_path):
    _, _, words, _ = transfer(realm, "/wnfs-v3-krb5i", folder, tmp_path, "up")
    realm.kinit("-l", "10s")
    process = line.client.start(*words, env={**realm.environment, "TSLWNFS_TERMINAL": "always"})
    line.relay.pass_bytes(SIZE // 3, process)
    realm.await_end_of_ticket()
    line.relay.open()
    done = client.finish(process)
    assert done.status != 0
    assert "the Kerberos ticket has expired" in done.err.decode()
    assert "kinit" in done.err.decode()


@pytest.mark.parametrize("direction", ["up", "down"])
def test_a_transfer_survives_a_server_that_is_killed(realm, line, mount, folder, tmp_path, direction):
    source, _, words, copy = transfer(realm, mount, folder, tmp_path, direction)
    process = line.client.start(*words, env=realm.environment)
    line.relay.pass_bytes(SIZE // 3, process)
    realm.kill()
    realm.start_again()
    line.relay.open()
    done = client.finish(process)
    assert (done.status, done.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED), done.err
    assert digest(copy) == digest(source)


@pytest.mark.parametrize("security", ["krb5i", "krb5p"])
@pytest.mark.parametrize("version", kerberos.VERSIONS)
def test_a_byte_that_is_changed_on_the_way_is_noticed_and_never_used(
    realm, line, folder, tmp_path, version, security
):
    source, _, words, copy = transfer(realm, f"/wnfs-{version}-{security}", folder, tmp_path, "down")
    trace = tmp_path / "trace"
    process = line.client.start("-trace", trace, "-level", "1", "1", "1", "1", *words, env=realm.environment)
    line.relay.pass_bytes(SIZE // 3, process)
    line.relay.flip(MIB // 2)
    line.relay.open()
    done = client.finish(process)
    assert (done.status, done.out[-len(SUCCEEDED) :]) == (0, SUCCEEDED), done.err
    assert digest(copy) == digest(source)
    assert "does not hold" in trace.read_text(encoding="utf-8")


def transfer(realm, mount, folder, tmp_path, direction):
    """The source, its name on the server, the words of the command that copies it, and the copy as a local file."""
    there = realm.writable / folder
    if direction == "up":
        source = make_file(tmp_path / "source", SIZE)
        return source, there / "copy", ("cp", source, f"{mount}/{folder}/copy"), there / "copy"
    source = make_file(there / "source", SIZE)
    return source, source, ("cp", f"{mount}/{folder}/source", tmp_path / "copy"), tmp_path / "copy"
