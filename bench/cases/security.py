"""What TLS and Kerberos cost: a large file without a round trip, beside the same in plain."""

import contextlib
import shutil
import subprocess
import typing

import certificates
import kerberos
import places
import servers
from measure import in_turns
from results import at_least
from transfers import Transfers

TITLE = "Security"
NAMES = {
    "tls": "a large file by TLS beside plain, and what its cipher allows",
    "kerberos": "a large file with krb5, krb5i and krb5p beside sys, and what their ciphers allow",
}
COLUMNS = (
    "case",
    "MiB/s",
    "plain, MiB/s",
    "CPU s/GiB",
    "plain",
    "cipher here",
    "cipher by openssl",
    "limit / ours",
    "to reach",
    "with openssl's cipher",
)
TEXT = """NFSv3, no round trip; TLS with loopnfsd (TLS_AES_256_GCM_SHA384), Kerberos with nfs-ganesha
(aes256-cts-hmac-sha1-96). Client and server share the processors, so what counts is the processor time that the client
takes for a GiB. Its limit is what plain takes and what the cipher alone takes on one core: as the library does it that
is used here, which for krb5i and krb5p is the system's Kerberos library, and in the last column as `openssl speed` does
it (AES-256-CBC, HMAC-SHA1)."""

WANTED = 0.6
WORKLOADS = ("cat", "up")
SLOWER = 4  # what takes so many times as long is given so much less
GIB = 1 << 30


class Cipher(typing.NamedTuple):
    """Processor seconds that a GiB takes on one core."""

    here: float
    openssl: float


def measure(bench):
    table = bench.report.table(TITLE, COLUMNS, TEXT)
    for name, why_impossible, run in (("tls", why_no_tls, by_tls), ("kerberos", why_no_kerberos, with_tickets)):
        if not bench.wants(name):
            continue
        why = why_impossible(bench)
        if why:
            bench.report.leave_out(name, why)
        else:
            run(bench, table)


def why_no_tls(bench):
    if not (bench.home / "lib" / "nfstdm-tls.so").exists():
        return "the home was built without the module for TLS"
    return None if shutil.which("openssl") else "openssl is not installed"


def why_no_kerberos(bench):
    if not bench.program("kerberos_speed").exists():
        return "built without libkrb5-dev"
    return why_no_tls(bench) or kerberos.why_impossible(bench.home)


def by_tls(bench, table):
    authority = certificates.Authority(bench.unused("authority"))
    signed = authority.sign("server")
    folder = bench.folder("served")
    with contextlib.closing(places.Loopback(bench)) as place:
        plain = place.start("--no-sync", folder)
        secure = place.start("--no-sync", "--tls", signed.certificate, signed.key, folder)
        settings = {"transport_security": "tls", "tls_ca": authority.certificate}
        place.client.tslnfstab.write_text(
            servers.server_block("plain", plain.address, [("/export", "/wnfs-plain")])
            + servers.server_block("tls", secure.address, [("/export", "/wnfs-tls")], **settings)
        )
        transfers = Transfers(bench, place.client, folder)
        for workload in WORKLOADS:
            seconds = openssl_seconds("-evp", "aes-256-gcm", *direction_of(workload))
            mounts = {"TLS": ("/wnfs-tls", Cipher(seconds, seconds))}
            compare(bench.repeats, table, transfers, workload, "/wnfs-plain", mounts)


def with_tickets(bench, table):
    server = kerberos.KerberosGanesha(bench.new_home(), bench.unused("exports"))
    with contextlib.closing(server):
        places.set_congestion_control(server.namespace, places.CONGESTION_CONTROL)
        size = max(bench.size // SLOWER, 1)
        transfers = Transfers(bench, server.client, server.writable, server.environment, size)
        speed = subprocess.run([bench.program("kerberos_speed")], check=True, capture_output=True, text=True)
        here = dict(zip(("up", "cat", "checksum"), map(float, speed.stdout.split())))
        for workload in WORKLOADS:
            ciphers = ciphers_of_kerberos(workload, here)
            mounts = {security: (f"/wnfs-v3-{security}", cipher) for security, cipher in ciphers.items()}
            compare(bench.repeats, table, transfers, workload, "/wnfs-v3-any", mounts)


def ciphers_of_kerberos(workload, here):
    """By security. With krb5 the data itself is not touched; `here` tells the seconds of the system's library."""
    hmac = openssl_seconds("-hmac", "sha1")
    cbc = openssl_seconds("-evp", "aes-256-cbc", *direction_of(workload))
    return {
        "krb5": Cipher(0, 0),
        "krb5i": Cipher(here["checksum"], hmac),
        "krb5p": Cipher(here[workload], cbc + hmac),
    }


def direction_of(workload):
    return ["-decrypt"] if workload == "cat" else []


def openssl_seconds(*algorithm):
    """Processor seconds for a GiB in blocks of 16 KiB, the size of a record of TLS."""
    words = ["openssl", "speed", "-mr", "-seconds", "1", "-bytes", "16384", *algorithm]
    told = subprocess.run(words, check=True, capture_output=True, text=True).stdout
    return GIB / float(told.splitlines()[-1].rpartition(":")[2])


def compare(repeats, table, transfers, workload, plain_mount, mounts):
    """Runs a workload in plain and through each of the mounts, {name: (mount, cipher)}, in turns."""
    paths = [plain_mount, *(mount for mount, _ in mounts.values())]
    plain, *others = in_turns(repeats, *(transfers.ours(workload, path) for path in paths))
    gibibytes = transfers.size / 1024
    plain_cost = plain.processor_seconds / gibibytes
    for (name, (_, cipher)), one in zip(mounts.items(), others):
        cost = one.processor_seconds / gibibytes
        share = (plain_cost + cipher.here) / cost
        table.add(
            f"{workload}, {name}",
            *(f"{transfers.size / each.median:.0f}" for each in (one, plain)),
            *(f"{each:.2f}" for each in (cost, plain_cost, *cipher)),
            *(f"{share:.2f}", at_least(WANTED, share), f"{(plain_cost + cipher.openssl) / cost:.2f}"),
        )
