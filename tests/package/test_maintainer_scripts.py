"""What the Debian package's scripts do when an installation does not go straight."""

import subprocess

import pytest
import trial
import users

SCRIPTS = "/var/lib/dpkg/info/tslwnfs"


@pytest.fixture
def enabled(machine, debs):
    """A machine with the utility, an enabled and configured client; gives the configuration."""
    machine.run("dpkg", "--no-triggers", "--install", machine.receive(debs["tslwnfs"]))
    return trial.enable(machine)


def state(machine):
    """What the scripts care for."""
    directories = (f"{trial.HOME}/dbs", f"{trial.HOME}/rdbms/lib/tdm")
    kept = machine.run("find", *directories, "-printf", "%p %m %u %g %s\\n").stdout
    return sorted(kept.splitlines()), machine.run("getent", "group", users.GROUP).stdout


def package_state(machine):
    return machine.run("dpkg-query", "--show", "--showformat=${Status} ${Version}", "tslwnfs").stdout


def with_failing_script(folder, script):
    """The package that is made of a folder's tree, with a script that fails."""
    file = folder / "tree/DEBIAN" / script
    file.write_text("#!/bin/sh\nexit 1\n")
    file.chmod(0o755)
    made = folder / f"failing-{script}.deb"
    subprocess.run(["dpkg-deb", "--build", "-Znone", folder / "tree", made], check=True, capture_output=True)
    return made


@pytest.mark.parametrize(
    "words", [("configure", "0.0.1-1"), ("configure", ""), ("abort-upgrade", "9-1"), ("abort-remove",), ("abort-deconfigure", "in-favour", "x", "1")]
)  # fmt: skip
def test_the_postinst_may_run_again_whatever_went_before(machine, enabled, words):
    machine.run(f"{SCRIPTS}.postinst", *words)
    before = state(machine)
    machine.run(f"{SCRIPTS}.postinst", *words)
    assert state(machine) == before
    trial.assert_upgraded(machine, enabled)


def test_the_postinst_follows_no_link_in_the_place_of_the_copy(machine, enabled):
    machine.path("/tmp/precious").write_bytes(b"precious")
    machine.run("ln", "-sf", "/tmp/precious", trial.COPY)
    machine.run("ln", "-sf", "/tmp/precious", f"{trial.COPY}.new")
    machine.run(f"{SCRIPTS}.postinst", "configure", "0.0.1-1")
    assert machine.path("/tmp/precious").read_bytes() == b"precious"
    assert not machine.path(trial.COPY).is_symlink()
    trial.assert_upgraded(machine, enabled)


def test_an_upgrade_that_fails_leaves_the_old_version_as_it_was(machine, enabled, next_debs, tmp_path_factory):
    folder = tmp_path_factory.mktemp("failing")
    subprocess.run(["dpkg-deb", "--raw-extract", next_debs["tslwnfs"], folder / "tree"], check=True)
    deb = with_failing_script(folder, "preinst")
    before = package_state(machine)
    done = machine.run("dpkg", "--no-triggers", "--install", machine.receive(deb), check=False)
    assert done.returncode == 1
    assert package_state(machine) == before
    trial.assert_upgraded(machine, enabled)


RIVAL = """Package: rival
Version: 1-1
Architecture: all
Maintainer: Nobody <nobody@example.org>
Conflicts: tslwnfs
Replaces: tslwnfs
Description: takes the place of another package
"""


def test_a_removal_that_is_called_off_leaves_the_client_enabled(machine, enabled, tmp_path_factory):
    """As that in favour of another package is whose own script fails."""
    folder = tmp_path_factory.mktemp("rival")
    (folder / "tree/DEBIAN").mkdir(parents=True)
    (folder / "tree/DEBIAN/control").write_text(RIVAL)
    deb = with_failing_script(folder, "preinst")
    done = machine.run("dpkg", "--no-triggers", "--install", machine.receive(deb), check=False)
    assert done.returncode == 1
    assert "in favour of rival" in done.stdout + done.stderr
    assert package_state(machine).startswith("install ok installed ")
    trial.assert_upgraded(machine, enabled)


@pytest.mark.parametrize(
    "words", [("upgrade", "9-1"), ("failed-upgrade", "9-1"), ("abort-install",), ("abort-upgrade", "9-1"), ("disappear", "x", "1")]
)  # fmt: skip
def test_the_postrm_takes_nothing_when_the_package_stays(machine, enabled, words):
    before = state(machine)
    machine.run(f"{SCRIPTS}.postrm", *words)
    assert state(machine) == before


def test_the_postrm_may_run_again(machine, enabled):
    machine.run("cp", f"{SCRIPTS}.postrm", "/tmp/postrm")
    machine.run("dpkg", "--no-triggers", "--purge", "tslwnfs")
    for words in ("remove", "purge", "purge"):
        machine.run("/tmp/postrm", words)
    assert not machine.path("/opt/tessel").exists()
