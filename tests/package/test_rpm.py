"""The RPMs: what they ask for, and their life on a machine. The machine is Debian's as a rule, so that dependencies are
examined and not resolved."""

import shutil
import subprocess

import pytest
import trial
import users

MAIN, DEVEL, SERVER, DEBUG = "tslwnfs", "tslwnfs-devel", "tslwnfs-loopnfsd", "tslwnfs-debuginfo"
C_LIBRARY = ("libc.so.6(", "ld-linux-", "rtld(", "rpmlib(")


@pytest.fixture
def package_manager(machine):
    def run(*words, **options):
        return machine.run("rpm", "--force-debian", "--dbpath", "/var/lib/rpm", *words, **options)

    if not shutil.which("rpm"):
        pytest.skip("rpm is not installed")
    return run


@pytest.fixture
def install(machine, package_manager):
    return lambda *rpms: package_manager("--upgrade", "--nodeps", *map(machine.receive, rpms))


def query(rpm, *words):
    done = subprocess.run(["rpm", "--query", *words, "--package", rpm], check=True, capture_output=True, text=True)
    return done.stdout.splitlines()


def wanted_by(rpm):
    """What it asks for beyond the C library."""
    return {line for line in query(rpm, "--requires") if not line.startswith(C_LIBRARY)}


def test_they_ask_for_the_c_library_and_what_their_scripts_call_alone(rpms):
    version = query(rpms[MAIN], "--queryformat", "%{VERSION}-%{RELEASE}\\n")[0]
    assert wanted_by(rpms[MAIN]) == {"/bin/sh", "/usr/sbin/groupadd"}
    assert wanted_by(rpms[SERVER]) == set()
    assert wanted_by(rpms[DEBUG]) == set()
    assert f"tslwnfs = {version}" in wanted_by(rpms[DEVEL])
    assert wanted_by(rpms[DEVEL]) <= {f"tslwnfs = {version}", "/usr/bin/pkg-config", "cmake-filesystem(x86-64)"}


def test_the_utility_recommends_what_its_modules_load(rpms):
    assert {"krb5-libs", "openssl-libs"} <= set(query(rpms[MAIN], "--recommends"))


def test_the_library_is_offered_by_the_name_with_which_programs_are_linked(rpms):
    assert [line for line in query(rpms[MAIN], "--provides") if line.startswith("libnfstdm.so.")]


def test_a_file_goes_to_a_server_and_comes_back(machine, install, serve, rpms):
    install(rpms[MAIN], rpms[SERVER])
    serve()
    trial.copy_there_and_back(machine)


def test_their_pages_and_completions_are_where_they_are_looked_for(machine, install, rpms):
    install(rpms[MAIN], rpms[DEVEL], rpms[SERVER])
    trial.pages_are_found(machine, "man1/tslwnfs.1", "man3/tdm.3", "man5/tslnfstab.5", "man8/loopnfsd.8")
    for completion in ("bash-completion/completions/tslwnfs", "zsh/site-functions/_tslwnfs"):
        assert "getserverlist" in machine.run("cat", f"/usr/share/{completion}").stdout


def test_programs_are_built_with_the_development_package_and_no_setting(machine, install, serve, rpms, tree):
    install(rpms[MAIN], rpms[DEVEL], rpms[SERVER])
    serve()
    trial.run_the_examples(machine, trial.make_examples(machine, machine.receive(tree / "examples")))


def test_debuggers_find_what_belongs_to_each_program(machine, install, rpms):
    install(*rpms.values())
    for _, apart in trial.debug_files(machine):
        assert apart.exists()


def test_an_upgrade_keeps_the_configuration_and_renews_the_copy_of_the_library(machine, install, rpms, next_rpms):
    install(rpms[MAIN])
    configuration = trial.enable(machine)
    install(next_rpms[MAIN])
    trial.assert_upgraded(machine, configuration)


def test_an_erasure_leaves_nothing_but_the_configuration(machine, install, package_manager, rpms):
    install(*rpms.values())
    configuration = trial.enable(machine)
    package_manager("--erase", *rpms)
    assert machine.path(trial.CONFIGURATION).read_bytes() == configuration
    assert trial.added_files(machine) <= trial.CONFIGURATION_FILES


def test_an_erasure_leaves_nothing_of_a_client_that_was_not_configured(machine, install, package_manager, rpms):
    install(*rpms.values())
    package_manager("--erase", *rpms)
    # Debian lacks some directories that the distributions of RPMs have.
    assert trial.added_files(machine) == set()
    assert not machine.path("/opt/tessel").exists()


def test_their_group_and_nobody_else_configures_the_client(machine, install, package_manager, rpms, next_rpms):
    """Before and after an upgrade, which unpacks the directories anew."""
    install(rpms[MAIN])
    users.add_users(machine)
    users.assert_the_group_configures_the_client(machine)
    install(next_rpms[MAIN])
    users.assert_the_group_enables_the_client(machine)
    users.assert_nobody_else_does(machine)
    assert package_manager("--verify", "--nodeps", MAIN).stdout == ""
