"""RPC over TLS: what goes by it, and that nothing of NFS ever goes without it where it was asked for."""

import contextlib
import shutil
import socket
import struct
import subprocess
import threading

import client
import pytest
import servers
import tls_front
from certificates import Authority
from files import digest, make_file
from namespace import await_condition, die_with_parent, stop
from texts import failed

pytestmark = pytest.mark.skipif(shutil.which("openssl") is None, reason="openssl is not installed")

SIZE = 20_000_000


@pytest.fixture(scope="module")
def authority(tmp_path_factory):
    return Authority(tmp_path_factory.mktemp("tls") / "authority")


@pytest.fixture(scope="module")
def signed(authority):
    return authority.sign("server")


@pytest.fixture
def secure(faulty, authority, signed):
    """Makes servers that are used by TLS: options of loopnfsd, settings of tslnfstab."""

    def make(*words, by=signed, **settings):
        settings = {"transport_security": "tls", "tls_ca": authority.certificate, **settings}
        return faulty("--tls", by.certificate, by.key, *words, **settings)

    return make


def assert_refused(server, tmp_path, reason):
    """A command fails, quickly and with a reason, and no call of NFS was made."""
    trace = tmp_path / "trace"
    run = server.run("-trace", trace, "-level", "1", "1", "1", "1", "ls", server.remote)
    assert (run.status, run.out[-len(failed(1)) :]) == (1, failed(1))
    text = trace.read_text(encoding="utf-8")
    assert reason in text, text
    assert server.count("FSINFO") == 0
    return text


def copy_both_ways(server, tmp_path, size=SIZE):
    source, back = make_file(tmp_path / "source", size), tmp_path / "back"
    server.ok("cp", source, server / "copy")
    server.ok("cp", server / "copy", back)
    assert digest(server.files / "copy") == digest(source) == digest(back)


@pytest.mark.parametrize("size", [0, 1, 16383, 16384, 16385, 3_000_001])
def test_files_of_any_size_go_both_ways(secure, tmp_path, size):
    server = secure()
    copy_both_ways(server, tmp_path, size)
    assert server.count("tls") == server.count("connections") > 0


def test_further_connections_resume_the_session(secure, tmp_path):
    server = secure("--address", "127.0.0.1", "--address", "127.0.0.2", nconnect=4)
    copy_both_ways(server, tmp_path)
    # A command may end while a further connection's handshake is under way.
    assert server.count("connections") >= server.count("tls") >= 8
    assert server.count("tls-resumed") > 0


def test_a_transfer_survives_lost_connections(secure, tmp_path):
    server = secure()
    server.fault("cut-after=3M:4")
    copy_both_ways(server, tmp_path)
    assert server.count("fault.cut-after") == 4


def test_a_slow_line_loses_nothing(secure, tmp_path):
    server = secure()
    server.fault("rate=20M")
    copy_both_ways(server, tmp_path, 5_000_000)


@contextlib.contextmanager
def reached_through_front(server, target, signed, *manner):
    """While it lasts, the client of a server goes through a front of the port that serves it."""
    with contextlib.closing(tls_front.Front(target, signed, *manner)) as front:
        server.daemon.addresses = [f"127.0.0.1:{front.port}"]
        server.configure()
        yield


def test_a_handshake_that_is_cut_is_begun_again(secure, signed, tmp_path):
    server = secure()
    with contextlib.closing(servers.LoopnfsdProcess(server.client.home, server.files)) as plain:
        with reached_through_front(server, plain.port, signed, "cut", "2"):
            copy_both_ways(server, tmp_path, 100_000)


def test_a_server_is_used_over_ipv6(secure, tmp_path):
    server = secure("--address", "::1")
    copy_both_ways(server, tmp_path, 3_000_001)
    assert server.count("tls") > 0


def test_equal_paths_share_the_work(secure, tmp_path):
    server = secure("--address", "127.0.0.1", "--address", "127.0.0.2")
    server.fault("rate=16M")
    source = make_file(tmp_path / "source", 4 * SIZE)
    server.ok("cp", source, server / "copy")
    assert digest(server.files / "copy") == digest(source)
    assert min(server.count("path.1"), server.count("path.2")) > SIZE


@pytest.mark.parametrize("slow", [1, 2])
def test_a_short_upload_does_not_wait_for_a_slow_path(secure, tmp_path, slow):
    server = secure("--address", "127.0.0.1", "--address", "127.0.0.2")
    server.fault(f"rate=64K@{slow}")
    source = make_file(tmp_path / "source", SIZE)
    server.ok("cp", source, server / "copy")
    assert digest(server.files / "copy") == digest(source)
    assert server.count(f"path.{slow}") < 1 << 20


@pytest.fixture
def behind(secure, signed):
    """Makes doors to a server, and has the client use the latest one: what comes in the tests' own ways of TLS."""
    doors = []

    def make(*words):
        server = secure()
        doors.append(tls_front.Front(server.daemon.port, signed, *words))
        return server, doors[-1].port

    yield make
    for door in doors:
        door.close()


def test_a_server_that_chooses_another_protocol_is_refused(behind, tmp_path):
    server, door = behind("alpn", "http/1.1")
    server.daemon.addresses = [f"127.0.0.1:{door}"]
    server.configure()
    # OpenSSL refuses it by itself, from some of its versions on, and is not as clear about it.
    text = assert_refused(server, tmp_path, "TLS: ")
    assert "the other side speaks another protocol than sunrpc" in text or "TLS handshake: bad extension" in text


@pytest.mark.parametrize("manner", [("crumbs", "5000"), ("rekey", "yes")], ids=["a byte a record", "new keys"])
def test_a_server_may_cut_its_records_and_change_its_keys_as_it_likes(faulty, authority, signed, tmp_path, manner):
    server = faulty(transport_security="tls", tls_ca=authority.certificate)
    with reached_through_front(server, server.daemon.port, signed, *manner):
        copy_both_ways(server, tmp_path, 3_000_000)


def test_a_mount_program_that_closes_connections_that_ask_for_tls_is_used_in_plain(behind, tmp_path):
    server, door = behind("shy")
    server.daemon.addresses = ["127.0.0.1"]
    server.configure(nfsport=server.daemon.port, mountport=door, mnt_timeout=10)
    trace = tmp_path / "trace"
    server.ok("-trace", trace, "-level", "1", "1", "1", "1", "ls", server.remote)
    told = "in plain: the server closes connections that ask for TLS for program 100005"
    assert told in trace.read_text(encoding="utf-8")
    copy_both_ways(server, tmp_path, 100_000)


def test_nfs_behind_connections_that_are_closed_for_the_question_for_tls_is_not_used(behind, tmp_path):
    server, door = behind("shy")
    server.daemon.addresses = ["127.0.0.1"]
    server.configure(nfsport=door, mountport=server.daemon.port, mnt_timeout=1)
    assert_refused(server, tmp_path, "asking for TLS: the server closed the connection")


def test_an_expired_certificate_is_refused(secure, authority, tmp_path):
    server = secure(by=authority.sign_expired("expired"))
    assert_refused(server, tmp_path, "the server's certificate is not trusted: certificate has expired")


def test_a_certificate_for_another_host_is_refused(secure, authority, tmp_path):
    server = secure(by=authority.sign("other", "DNS:other.example,IP:192.0.2.1"))
    assert_refused(server, tmp_path, "it is for another host than 127.0.0.1 or faulty")


def test_a_certificate_that_names_no_host_is_refused(secure, authority, tmp_path):
    server = secure(by=authority.sign("127.0.0.1", None))
    assert_refused(server, tmp_path, "it is for another host than 127.0.0.1 or faulty")


def test_the_name_of_the_server_will_do(secure, authority, tmp_path):
    copy_both_ways(secure(by=authority.sign("named", "DNS:faulty")), tmp_path, 1000)


def test_a_self_signed_certificate_is_refused_unless_it_is_trusted_itself(secure, tmp_path_factory, tmp_path):
    alone = Authority(tmp_path_factory.mktemp("alone") / "a")
    alone.make("-x509", "-subj", "/CN=alone", "-days", "2", "-addext", "subjectAltName=IP:127.0.0.1")
    server = secure(by=alone)
    assert_refused(server, tmp_path, "the server's certificate is not trusted: self-signed certificate")
    server.configure(tls_ca=alone.certificate)
    copy_both_ways(server, tmp_path, 1000)


def test_the_certificates_of_the_system_are_asked_without_tls_ca(faulty, signed, tmp_path):
    server = faulty("--tls", signed.certificate, signed.key, transport_security="tls")
    assert_refused(server, tmp_path, "the server's certificate is not trusted: unable to get local issuer certificate")


@pytest.mark.parametrize("setting", ["tls_ca", "tls_certificate", "tls_key"])
def test_a_file_that_is_missing_is_named(secure, signed, tmp_path, setting):
    files = {"tls_certificate": signed.certificate, "tls_key": signed.key, setting: tmp_path / "missing"}
    server = secure(**{"transport_security": "mtls", **files})
    assert_refused(server, tmp_path, f"TLS: {tmp_path}/missing: No such file or directory")


def test_a_server_that_asks_for_a_certificate_gets_it(secure, authority, tmp_path):
    server = secure("--mtls", authority.certificate)
    assert_refused(server, tmp_path, "TLS: the other side refuses: tlsv13 alert certificate required")
    mine = authority.sign("client", None)
    server.configure(transport_security="mtls", tls_certificate=mine.certificate, tls_key=mine.key)
    copy_both_ways(server, tmp_path, 100_000)


def test_a_client_certificate_of_strangers_is_refused(secure, authority, tmp_path_factory, tmp_path):
    strange = Authority(tmp_path_factory.mktemp("strange") / "a").sign("client", None)
    server = secure("--mtls", authority.certificate, transport_security="mtls")
    server.configure(tls_certificate=strange.certificate, tls_key=strange.key)
    assert_refused(server, tmp_path, "TLS: the other side refuses: ")


def test_nfs_never_goes_in_plain_where_tls_was_asked_for(faulty, authority, tmp_path):
    server = faulty(transport_security="tls", tls_ca=authority.certificate)
    text = assert_refused(server, tmp_path, "the server does not offer TLS, which transport_security asks for")
    assert "in plain: the server does not offer TLS for program 100005" in text
    assert server.count("MNT") > 0


def test_a_server_that_denies_the_flavour_offers_no_tls(faulty, authority, tmp_path):
    server = faulty(transport_security="tls", tls_ca=authority.certificate)
    server.fault("rpc-error=*:AUTH_ERROR:*")
    deny = b"\0\0\0\1" + b"\0\0\0\1" + b"\0\0\0\2"
    with answering(lambda xid: struct.pack(">II", xid, 1) + deny) as port:
        server.daemon.addresses = [f"127.0.0.1:{port}"]
        server.configure(nfsport=port, mountport=port, version="nfsv4.1")
        assert_refused(server, tmp_path, "the server does not offer TLS, which transport_security asks for")


def test_a_server_without_the_setting_is_used_in_plain(secure, tmp_path):
    server = secure(transport_security="none")
    run = server.run("ls", server.remote)
    assert run.status == 1  # it serves NFS by TLS only
    assert server.count("tls") == 0


def test_an_unknown_value_makes_the_server_unusable(secure, tmp_path):
    assert_refused(secure(transport_security="ssl"), tmp_path, 'transport_security: "ssl" is none of none, tls and mtls')


def test_without_the_module_the_reason_names_the_package(secure, tmp_path):
    server = secure()
    (server.client.home / "lib" / "nfstdm-tls.so").unlink()
    assert_refused(server, tmp_path, "the module is not installed; TLS needs OpenSSL 3: package libssl3")


@contextlib.contextmanager
def answering(make):
    """A server that answers the first record of each connection with what make() gives for its xid, as a record or, when
    it begins with a record mark of its own, as it is."""
    listener = socket.create_server(("127.0.0.1", 0))

    def serve():
        while True:
            try:
                connection, _ = listener.accept()
            except OSError:
                return
            with connection, contextlib.suppress(OSError):
                call = connection.recv(4096)
                body = make(struct.unpack_from(">I", call, 4)[0])
                connection.sendall(struct.pack(">I", 0x80000000 | len(body)) + body)
                connection.recv(4096)

    thread = threading.Thread(target=serve, daemon=True)
    thread.start()
    try:
        yield listener.getsockname()[1]
    finally:
        listener.shutdown(socket.SHUT_RDWR)
        listener.close()
        thread.join()


NONSENSE = {
    "nothing": lambda xid: b"",
    "random": lambda xid: bytes(range(200, 256)),
    "another-xid": lambda xid: struct.pack(">III", xid ^ 1, 1, 0) + struct.pack(">II8sI", 0, 8, b"STARTTLS", 0),
    "a-call": lambda xid: struct.pack(">III", xid, 0, 2) + bytes(28),
    "cut": lambda xid: struct.pack(">IIIII", xid, 1, 0, 0, 8) + b"STAR",
    "large": lambda xid: bytes(100_000),
}


@pytest.mark.parametrize("kind", NONSENSE)
def test_nonsense_for_an_answer_fails_the_contact(faulty, authority, tmp_path, kind):
    server = faulty(transport_security="tls", tls_ca=authority.certificate)
    with answering(NONSENSE[kind]) as port:
        server.daemon.addresses = [f"127.0.0.1:{port}"]
        server.configure()
        assert_refused(server, tmp_path, "the answer to the question for TLS ")


def test_what_is_no_tls_behind_the_offer_fails_the_contact(faulty, authority, tmp_path):
    server = faulty(transport_security="tls", tls_ca=authority.certificate)
    offer = lambda xid: struct.pack(">IIIII8sI", xid, 1, 0, 0, 8, b"STARTTLS", 0)  # noqa: E731
    with answering(lambda xid: offer(xid)[:-4] + offer(xid)[-4:]) as port:
        server.daemon.addresses = [f"127.0.0.1:{port}"]
        server.configure(mnt_timeout=2)
        # The server says nothing more and closes: that may pass, and is tried again as long as the first contact may last.
        assert_refused(server, tmp_path, "the other side closed the connection (TLS handshake)")


@pytest.mark.kinds("ganesha4")
def test_version_4_goes_by_tls_too(server, place, signed, authority, installed_home, tmp_path):
    with contextlib.closing(tls_front.Front(server.nfs_port(), signed, enter=server.client.enter)) as front:
        mine = client.Client(client.copy_of_home(installed_home, tmp_path / "home"), server.client.enter)
        settings = {"transport_security": "tls", "tls_ca": authority.certificate, "nconnect": 2}
        mine.tslnfstab.write_text(server.block_through(front.port, **settings))
        source, back = make_file(tmp_path / "source", SIZE), tmp_path / "back"
        mine.ok("cp", source, place / "copy")
        mine.ok("cp", place / "copy", back)
        assert digest(place.files / "copy") == digest(source) == digest(back)


def start_capture(packets, port):
    packets.touch()
    packets.chmod(0o666)
    command = ["tshark", "-i", "lo", "-f", f"tcp port {port}", "-B", "64", "-w", packets]
    process = subprocess.Popen(
        command, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True, preexec_fn=die_with_parent
    )
    for line in process.stderr:
        if "Capturing on" in line:
            await_condition(lambda: packets.stat().st_size > 0, "the capture", process)
            return process
    pytest.skip("no capture is possible here")


def test_a_capture_can_be_read_with_the_keys_and_only_with_them(secure, tmp_path):
    if shutil.which("tshark") is None:
        pytest.skip("tshark is not installed")
    server = secure()
    packets, keys = tmp_path / "packets.pcapng", tmp_path / "keys"
    process = start_capture(packets, server.daemon.port)
    (server.files / "visible-name").write_text("x")
    server.ok("ls", server.remote)
    assert not keys.exists()
    server.ok("ls", server.remote, env={"SSLKEYLOGFILE": keys})
    assert keys.stat().st_mode & 0o777 == 0o600

    def readable(*words):
        """What the connections say, as far as it can be read."""
        follow = [word for stream in range(8) for word in ("-z", f"follow,tls,ascii,{stream}")]
        command = ["tshark", "-r", packets, "-d", f"tcp.port=={server.daemon.port},tls", *words, "-q", *follow]
        return subprocess.run(command, capture_output=True, check=False).stdout

    try:
        await_condition(
            lambda: b"visible-name" in readable("-o", f"tls.keylog_file:{keys}"), "a listing that can be read"
        )
        assert b"visible-name" not in readable()
        assert b"visible-name" not in packets.read_bytes()
    finally:
        stop(process)
        process.stderr.close()
