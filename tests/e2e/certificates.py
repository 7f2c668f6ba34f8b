"""Certificates for the tests of TLS, made by the openssl command."""

import subprocess

LOCAL = "IP:127.0.0.1,IP:127.0.0.2,IP:::1,DNS:localhost"

AUTHORITY_CONFIGURATION = """
[ca]
default_ca = authority
[authority]
database = {place}/index
new_certs_dir = {place}
rand_serial = yes
default_md = sha256
policy = policy
copy_extensions = copy
[policy]
commonName = supplied
"""


def openssl(*words):
    subprocess.run(["openssl", *map(str, words)], check=True, capture_output=True, text=True)


class Certificate:
    """Two files: `certificate` and `key`."""

    def __init__(self, place, name):
        self.certificate = place / f"{name}.pem"
        self.key = place / f"{name}.key"

    def make(self, *words):
        """Makes what stands by itself, or a request for what an authority signs."""
        openssl(
            *("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", self.key),
            *("-out", self.certificate, *words),
        )
        return self


class Authority(Certificate):
    """Signs certificates of servers and clients."""

    def __init__(self, place):
        place.mkdir()
        super().__init__(place, "authority")
        self.place = place
        self.make("-x509", "-subj", "/CN=authority", "-days", "2")

    def sign(self, name, names=LOCAL):
        signed = Certificate(self.place, name)
        words = ["-addext", f"subjectAltName={names}"] if names else []
        return signed.make(
            *("-x509", "-subj", f"/CN={name}", "-days", "2", "-CA", self.certificate, "-CAkey", self.key),
            *("-addext", "basicConstraints=critical,CA:FALSE", *words),
        )

    def sign_expired(self, name, names=LOCAL):
        expired = Certificate(self.place, name)
        expired.make("-subj", f"/CN={name}", "-addext", f"subjectAltName={names}")
        configuration = self.place / "ca.cnf"
        configuration.write_text(AUTHORITY_CONFIGURATION.format(place=self.place))
        (self.place / "index").touch()
        openssl(
            *("ca", "-batch", "-notext", "-config", configuration, "-cert", self.certificate, "-keyfile", self.key),
            *("-startdate", "20200101000000Z", "-enddate", "20200102000000Z"),
            *("-in", expired.certificate, "-out", self.place / f"{name}.signed"),
        )
        (self.place / f"{name}.signed").replace(expired.certificate)
        return expired
