"""The Debian packages: what they say of themselves, and their life on a machine."""

import re
import shutil
import subprocess

import machine_code
import pytest
import trial
import users

MAIN, DEV, SERVER, DEBUG = "tslwnfs", "tslwnfs-dev", "tslwnfs-loopnfsd", "tslwnfs-dbgsym"


@pytest.fixture
def dpkg(machine):
    """Triggers are other packages' work: an index of all manual pages takes longer than everything here."""
    return lambda *words, **options: machine.run("dpkg", "--no-triggers", *words, **options)


@pytest.fixture
def install(machine, dpkg):
    """Installs packages; a machine that leaves out documents gets them all the same."""
    return lambda *debs, **options: dpkg("--path-include=*", "--install", *map(machine.receive, debs), **options)


def test_a_file_goes_to_a_server_and_comes_back(machine, install, serve, debs):
    install(debs[MAIN], debs[SERVER])
    serve()
    trial.copy_there_and_back(machine)


def test_the_server_is_of_use_alone(machine, install, start_server, debs):
    install(debs[SERVER])
    assert start_server().startswith("127.0.0.1:")
    trial.pages_are_found(machine, "man8/loopnfsd.8")
    assert not machine.path(f"{trial.HOME}/bin/tslwnfs").exists()


def test_the_utility_is_of_use_alone(machine, install, debs):
    install(debs[MAIN])
    trial.enable(machine)
    machine.run("tslwnfs", "iswnfsenabled", trial.HOME)
    assert not machine.path("/usr/bin/loopnfsd").exists()


def test_another_home_may_be_named(machine, install, debs):
    install(debs[MAIN])
    machine.path("/tmp/other/dbs").mkdir(parents=True)
    machine.run("tslwnfs", "createtslnfstab", "-s", "nas1", env={"TESSEL_HOME": "/tmp/other"})
    assert machine.path("/tmp/other/dbs/tslnfstab").exists()
    assert not machine.path(trial.CONFIGURATION).exists()


def test_their_pages_and_completions_are_where_they_are_looked_for(machine, install, debs):
    install(debs[MAIN], debs[DEV])
    trial.pages_are_found(machine, "man1/tslwnfs.1", "man3/tdm.3", "man5/tslnfstab.5")
    for completion in ("bash-completion/completions/tslwnfs", "zsh/vendor-completions/_tslwnfs"):
        assert "getserverlist" in machine.run("cat", f"/usr/share/{completion}").stdout
    for document in ("copyright", "examples/read.c"):
        assert machine.path(f"/usr/share/doc/{DEV}").readlink().name == MAIN
        assert machine.run("cat", f"/usr/share/doc/{DEV}/{document}").stdout


@pytest.mark.parametrize(
    "shell, file, read",
    [
        ("bash", "bash-completion/completions/tslwnfs", "_tslwnfs_mount_points"),
        ("zsh", "zsh/vendor-completions/_tslwnfs", "_tslwnfs_read_mount_points; print -l $reply"),
    ],
)
def test_their_completions_know_the_mount_points_of_the_home(machine, install, debs, shell, file, read):
    if not shutil.which(shell):
        pytest.skip(f"{shell} is not installed")
    install(debs[MAIN])
    machine.run("tslwnfs", "createtslnfstab", "-s", "nas1", "-em", "/vol,/mnt/vol")
    # Outside a completion zsh's functions are defined, and the call at the file's end fails.
    assert machine.run(shell, "-c", f". /usr/share/{file} 2>/dev/null; {read}").stdout == "/mnt/vol\n"


@pytest.mark.parametrize("build", [trial.make_examples, trial.build_examples_with_cmake])
def test_programs_are_built_with_the_development_package_and_no_setting(machine, install, serve, debs, build):
    install(debs[MAIN], debs[DEV], debs[SERVER])
    serve()
    machine.run("cp", "-r", "/usr/share/doc/tslwnfs-dev/examples", "/tmp/examples")
    trial.run_the_examples(machine, build(machine, "/tmp/examples"))


def test_the_development_package_is_refused_without_its_library(install, debs):
    done = install(debs[DEV], check=False)
    assert done.returncode == 1
    assert re.search(r"tslwnfs-dev depends on tslwnfs \(= .*\)", done.stderr)


def test_debuggers_find_what_belongs_to_each_program(machine, install, debs):
    install(*debs.values())
    for program, apart in trial.debug_files(machine):
        assert machine_code.build_id(apart) == machine_code.build_id(program)
        assert {".symtab", ".debug_line"} <= machine_code.sections(apart)
        assert not {".symtab", ".debug_line"} & machine_code.sections(program)


def test_an_upgrade_keeps_the_configuration_and_renews_the_copy_of_the_library(machine, install, debs, next_debs):
    install(debs[MAIN])
    configuration = trial.enable(machine)
    install(next_debs[MAIN])
    trial.assert_upgraded(machine, configuration)


def test_an_upgrade_of_all_packages_leaves_no_other_version(machine, dpkg, install, debs, next_debs):
    install(*debs.values())
    install(*next_debs.values())
    for package in debs:
        assert dpkg("--status", package).stdout.count("-2\n"), package


def test_an_upgrade_of_one_package_without_a_group_goes_in_any_order(machine, dpkg, install, debs, tmp_path_factory):
    """As the first packages were, which held all of it."""
    folder = tmp_path_factory.mktemp("whole")
    subprocess.run(["dpkg-deb", "--raw-extract", debs[MAIN], folder / "tree"], check=True)
    for other in (SERVER, DEV):
        (folder / other).mkdir()
        subprocess.run(["dpkg-deb", "--extract", debs[other], folder / other], check=True)
        subprocess.run(["cp", "-a", folder / other / "opt", folder / "tree"], check=True)
    control = folder / "tree/DEBIAN/control"
    control.write_text(re.sub(r"^Version: .*$", "Version: 0.0.1-1", control.read_text(), flags=re.MULTILINE))
    for script in ("postinst", "postrm"):
        (folder / "tree/DEBIAN" / script).unlink()
    whole = folder / "whole.deb"
    subprocess.run(["dpkg-deb", "--build", "-Znone", folder / "tree", whole], check=True, capture_output=True)
    install(whole)
    configuration = trial.enable(machine)
    install(debs[SERVER], debs[DEV], debs[MAIN])
    trial.assert_upgraded(machine, configuration)
    assert users.owners(machine, trial.CONFIGURATION) == f"-rw-rw-r-- {users.GROUP}"
    for package, file in ((SERVER, "bin/loopnfsd"), (DEV, "include/tdm.h"), (MAIN, "bin/tslwnfs")):
        assert dpkg("--search", f"{trial.HOME}/{file}").stdout == f"{package}: {trial.HOME}/{file}\n"


def test_an_upgrade_does_not_enable_the_client(machine, install, debs, next_debs):
    install(debs[MAIN])
    install(next_debs[MAIN])
    assert not machine.path(trial.COPY).exists()


def test_a_removal_keeps_the_configuration_alone(machine, install, dpkg, debs):
    install(*debs.values())
    configuration = trial.enable(machine)
    dpkg("--remove", *debs)
    assert machine.path(trial.CONFIGURATION).read_bytes() == configuration
    assert trial.added_files(machine) <= trial.CONFIGURATION_FILES


def test_a_purge_leaves_nothing(machine, install, dpkg, serve, debs):
    install(*debs.values())
    trial.enable(machine)
    serve()
    machine.run("tslwnfs", "save")
    machine.run("tslwnfs", "umount", "/mnt/wnfs")
    dpkg("--purge", *debs)
    assert machine.additions() == set()


def test_a_purge_keeps_what_others_put_into_the_home(machine, install, dpkg, debs):
    install(debs[MAIN])
    machine.path(f"{trial.HOME}/dbs/note").touch()
    dpkg("--purge", MAIN)
    assert trial.added_files(machine) == {f"{trial.HOME}/dbs/note"}


def test_nothing_of_them_is_changed_by_using_them(machine, install, dpkg, serve, debs):
    install(*debs.values())
    serve()
    trial.copy_there_and_back(machine)
    machine.run("tslwnfs", "wnfsenable", "-y")
    assert dpkg("--verify", *debs).stdout == ""


def test_its_group_and_nobody_else_configures_the_client(machine, install, debs):
    install(debs[MAIN])
    users.add_users(machine)
    users.assert_the_group_configures_the_client(machine)
    users.assert_the_group_enables_the_client(machine)
    users.assert_nobody_else_does(machine)


def test_an_upgrade_keeps_what_an_administrator_made_of_the_directories(machine, install, debs, next_debs):
    install(debs[MAIN])
    group = machine.run("getent", "group", users.GROUP).stdout
    machine.run("chmod", "0750", f"{trial.HOME}/dbs")
    machine.run("chgrp", "root", f"{trial.HOME}/rdbms/lib/tdm")
    install(next_debs[MAIN])
    assert users.owners(machine, f"{trial.HOME}/dbs") == f"drwxr-s--- {users.GROUP}"
    assert users.owners(machine, f"{trial.HOME}/rdbms/lib/tdm") == "drwxrwsr-x root"
    assert machine.run("getent", "group", users.GROUP).stdout == group


def test_a_group_that_is_there_is_used_and_stays(machine, install, dpkg, debs):
    machine.run("groupadd", "--gid", "4321", users.GROUP)
    install(debs[MAIN])
    assert machine.run("stat", "--format=%g %a", f"{trial.HOME}/dbs").stdout == "4321 2775\n"
    dpkg("--purge", MAIN)
    assert machine.run("getent", "group", users.GROUP).stdout.split(":")[2] == "4321"
