"""Who may configure the packaged home: the members of its group, and nobody else."""

import trial

GROUP = "tslwnfs"
MEMBERS = ("dbowner", "dbhelper")
STRANGER = "stranger"


def add_users(machine):
    for name in MEMBERS:
        machine.run("useradd", "--no-create-home", "--user-group", "--groups", GROUP, name)
    machine.run("useradd", "--no-create-home", "--user-group", STRANGER)


def run_as(machine, name, *command, mask="022", check=True):
    """Runs the package's command as a user, who is told reasons."""
    words = ["setpriv", f"--reuid={name}", f"--regid={name}", "--init-groups", "sh", "-c"]
    script = f'umask {mask}; exec "$@"'
    return machine.run(*words, script, "sh", *command, env={"TSLWNFS_TERMINAL": "reasons"}, check=check)


def owners(machine, path):
    return machine.run("stat", "--format=%A %G", path).stdout.strip()


def assert_the_group_configures_the_client(machine):
    """Each member takes over what root and the other one made, whatever their umasks."""
    first, second = MEMBERS
    machine.run("sh", "-c", "umask 077; tslwnfs createtslnfstab -s nas1 -em /vol,/mnt/vol")
    run_as(machine, first, "tslwnfs", "mount", "/more", "/mnt/more", "-s", "nas1", "-p", "nas1")
    run_as(machine, second, "tslwnfs", "createtslnfstab", "-s", "nas1", "-em", "/new,/mnt/new", mask="077")
    run_as(machine, first, "tslwnfs", "save")
    run_as(machine, second, "tslwnfs", "delete_server", "-s", "nas1")
    run_as(machine, second, "tslwnfs", "save", "-y")
    run_as(machine, first, "tslwnfs", "createtslnfstab", "-s", "nas2", "-em", "/vol,/mnt/vol", mask="027")
    run_as(machine, second, "tslwnfs", "restore", "-y")
    run_as(machine, first, "tslwnfs", "createtslnfstab", "-s", "nas3", "-em", "/vol,/mnt/vol")
    for name in (trial.CONFIGURATION, f"{trial.CONFIGURATION}.sav"):
        assert owners(machine, name).startswith("-rw-rw---- ") and owners(machine, name).endswith(f" {GROUP}"), name


def assert_the_group_enables_the_client(machine):
    first, second = MEMBERS
    run_as(machine, first, "tslwnfs", "wnfsenable", "-y")
    assert machine.path(trial.COPY).read_bytes() == machine.path(trial.LIBRARY).read_bytes()
    run_as(machine, second, "tslwnfs", "wnfsenable", "-y")
    run_as(machine, second, "tslwnfs", "wnfsdisable")
    assert not machine.path(trial.COPY).exists()


def assert_nobody_else_does(machine):
    before = machine.path(trial.CONFIGURATION).read_bytes()
    for command in (("createtslnfstab", "-s", "evil"), ("mount", "/x", "/mnt/x"), ("wnfsenable", "-y"), ("save", "-y")):
        run = run_as(machine, STRANGER, "tslwnfs", *command, check=False)
        assert run.returncode == 1, command
        assert "ermission denied" in run.stderr, (command, run.stderr)
        assert machine.path(trial.CONFIGURATION).read_bytes() == before
    assert not machine.path(trial.COPY).exists()
