"""A Kerberos realm and an nfs-ganesha that asks for tickets, in a namespace of the tests' own."""

import os
import shutil
import subprocess
import time

import namespace
import servers

REALM = "TESSEL.TEST"
SECURITIES = ("krb5", "krb5i", "krb5p")
VERSIONS = {"v3": "nfsv3", "v4": "nfsv4.1"}

KRB5_CONF = """
[libdefaults]
    default_realm = {realm}
    dns_lookup_kdc = false
    dns_lookup_realm = false
    dns_canonicalize_hostname = false
    rdns = false
    udp_preference_limit = 1
    clockskew = 1
[realms]
    {realm} = {{
        kdc = 127.0.0.1:8888
    }}
[domain_realm]
    localhost = {realm}
"""

KDC_CONF = """
[kdcdefaults]
    kdc_tcp_ports = 8888
[realms]
    {realm} = {{
        database_name = {folder}/principal
        key_stash_file = {folder}/stash
        acl_file = {folder}/kadm5.acl
        kdc_tcp_listen = 127.0.0.1:8888
        max_life = 10h
    }}
"""

GANESHA_CONFIGURATION = """
NFS_CORE_PARAM {{ Protocols = 3,4; Enable_NLM = false; Enable_RQUOTA = false; }}
NFS_KRB5 {{ PrincipalName = nfs; KeytabPath = {folder}/nfs.keytab; CCacheDir = {folder}/ccaches; Active_krb5 = true; }}
NFSV4 {{ Graceless = true; }}
EXPORT_DEFAULTS {{ Protocols = 3,4; Squash = No_Root_Squash; Attr_Expiration_Time = 0; }}
EXPORT {{ Export_Id = 1; Path = {place}/any; Pseudo = /any; Access_Type = RW; SecType = krb5, krb5i, krb5p, sys;
    FSAL {{ Name = VFS; }} }}
EXPORT {{ Export_Id = 2; Path = {place}/only; Pseudo = /only; Access_Type = RW; SecType = krb5, krb5p;
    FSAL {{ Name = VFS; }} }}
"""

TOOLS = ("krb5kdc", "kdb5_util", "kadmin.local", "kinit", "klist")


def why_impossible(home):
    if not (home / "lib" / "nfstdm-gss.so").exists():
        return "the home was built without the module for Kerberos"
    for tool in TOOLS:
        if shutil.which(tool, path="/usr/sbin:/usr/bin:/sbin:/bin") is None:
            return f"{tool} is not installed"
    return servers.Ganesha.why_impossible()


class KerberosGanesha(servers.Ganesha):
    """The server's principal is nfs/localhost, the caller's alice. Export `any` takes everything, `only` krb5 and krb5p."""

    name = "ganesha"
    programs = ((100003, 3), (100003, 4), (100005, 3))

    def _start(self, home, place):
        self._make_folders(home, place / "any", place / "only")
        for folder in (self.writable, self.read_only):
            folder.chmod(0o777)
        self.place = place
        self.folder = self.client.home / "realm"
        (self.folder / "ccaches").mkdir(parents=True)
        self._make_realm()
        (self.client.home / "ganesha.conf").write_text(GANESHA_CONFIGURATION.format(folder=self.folder, place=place))
        self._spawn("rpcbind", "-f", "-w")
        namespace.await_condition(lambda: self._answers(100000, 2), "rpcbind", self.processes[-1])
        self.start_again()
        self.client.tslnfstab.write_text(self.tslnfstab())

    @property
    def environment(self):
        return {
            "KRB5_CONFIG": self.folder / "krb5.conf",
            "KRB5_KDC_PROFILE": self.folder / "kdc.conf",
            "KRB5CCNAME": f"FILE:{self.folder}/ccache",
        }

    def _make_realm(self):
        for name, text in (("krb5.conf", KRB5_CONF), ("kdc.conf", KDC_CONF)):
            (self.folder / name).write_text(text.format(realm=REALM, folder=self.folder))
        self.realm("kdb5_util", "create", "-s", "-r", REALM, "-P", "master")
        for query in (
            "addprinc -randkey nfs/localhost",
            "addprinc -randkey nfs/elsewhere",
            "addprinc -pw secret alice",
            f"ktadd -k {self.folder}/nfs.keytab nfs/localhost",
            f"ktadd -norandkey -k {self.folder}/alice.keytab alice",
        ):
            self.realm("kadmin.local", "-q", query)
        os.environ.update({name: str(value) for name, value in self.environment.items()})
        os.environ["KRB5_KTNAME"] = f"{self.folder}/nfs.keytab"
        self._spawn("krb5kdc", "-n")
        namespace.await_condition(self._has_ticket, "the key distribution centre", self.processes[-1])

    def _has_ticket(self):
        return self.realm("kinit", "alice", input="secret\n", check=False).returncode == 0

    def realm(self, *command, **options):
        """Runs a program of the realm's in the namespace."""
        environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", **{k: str(v) for k, v in self.environment.items()}}
        words = [*self.namespace.enter(), *map(str, command)]
        return subprocess.run(words, env=environment, text=True, capture_output=True, **{"check": True, **options})

    def kinit(self, *words):
        self.realm("kinit", *words, "alice", input="secret\n")

    def await_end_of_ticket(self):
        """Also for those who allow for clocks that differ."""
        namespace.await_condition(lambda: self.realm("klist", "-s", check=False).returncode != 0, "the ticket's end")
        end = time.monotonic() + 2
        namespace.await_condition(lambda: time.monotonic() > end, "the end of the clocks' difference")

    def exports_of(self, version):
        """Every security of `any`, and both exports without one."""
        path = str if version == "v4" else lambda name: f"{self.place}{name}"
        exports = [(path("/any"), f"/wnfs-{version}-{each}\tsecurity: {each}") for each in SECURITIES]
        exports += [(path("/any"), f"/wnfs-{version}-any"), (path("/only"), f"/wnfs-{version}-only")]
        return [*exports, (path("/only"), f"/wnfs-{version}-wrong\tsecurity: sys")]

    def tslnfstab(self, **settings):
        return "".join(
            servers.server_block("localhost", "127.0.0.1", self.exports_of(version), version=word, **settings)
            for version, word in VERSIONS.items()
        )

    def close(self):
        super().close()
        for name in (*self.environment, "KRB5_KTNAME"):
            os.environ.pop(name, None)
