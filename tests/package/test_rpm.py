"""The RPM: what it asks for, and its life on a machine. The machine is Debian's as a rule, so that dependencies are
examined and not resolved."""

import shutil
import subprocess

import pytest
import trial

C_LIBRARY = ("libc.so.6(", "ld-linux-", "rtld(", "rpmlib(", "/bin/sh")


@pytest.fixture
def package_manager(machine):
    def run(*words):
        machine.run("rpm", "--force-debian", "--dbpath", "/var/lib/rpm", *words)

    if not shutil.which("rpm"):
        pytest.skip("rpm is not installed")
    return run


@pytest.fixture
def install(machine, package_manager):
    return lambda rpm: package_manager("--upgrade", "--nodeps", machine.receive(rpm))


def query(rpm, *words):
    done = subprocess.run(["rpm", "--query", *words, "--package", rpm], check=True, capture_output=True, text=True)
    return done.stdout.splitlines()


def test_it_asks_for_the_c_library_and_a_shell_alone(rpm):
    own = {line.split(" ")[0] for line in query(rpm, "--provides")}
    wanted = [line for line in query(rpm, "--requires") if line.split(" ")[0] not in own]
    assert [line for line in wanted if not line.startswith(C_LIBRARY)] == []
    assert "/bin/sh" in wanted


def test_a_file_goes_to_a_server_and_comes_back(machine, install, serve, rpm):
    install(rpm)
    serve()
    trial.copy_there_and_back(machine)


def test_its_pages_and_completions_are_where_they_are_looked_for(machine, install, rpm):
    install(rpm)
    for page in ("man1/tslwnfs.1", "man3/tdm.3", "man5/tslnfstab.5", "man8/loopnfsd.8"):
        assert machine.run("zcat", f"/usr/share/man/{page}.gz").stdout.startswith(r".\" SPDX"), page
    for completion in ("bash-completion/completions/tslwnfs", "zsh/site-functions/_tslwnfs"):
        assert "getserverlist" in machine.run("cat", f"/usr/share/{completion}").stdout


def test_an_upgrade_keeps_the_configuration_and_renews_the_copy_of_the_library(machine, install, rpm, next_rpm):
    install(rpm)
    configuration = trial.enable(machine)
    install(next_rpm)
    trial.assert_upgraded(machine, configuration)


def test_an_erasure_leaves_nothing_but_the_configuration(machine, install, package_manager, rpm):
    install(rpm)
    configuration = trial.enable(machine)
    package_manager("--erase", "tslwnfs")
    assert machine.path(trial.CONFIGURATION).read_bytes() == configuration
    assert trial.added_files(machine) <= trial.CONFIGURATION_FILES


def test_an_erasure_leaves_nothing_of_a_client_that_was_not_configured(machine, install, package_manager, rpm):
    install(rpm)
    package_manager("--erase", "tslwnfs")
    # Debian lacks some directories that the distributions of RPMs have.
    assert trial.added_files(machine) == set()
    assert not machine.path("/opt/tessel").exists()
