"""What every package has to stand, whichever its format."""

HOME = "/opt/tessel/wnfs"
CONFIGURATION = f"{HOME}/dbs/tslnfstab"
CONFIGURATION_FILES = {CONFIGURATION, f"{CONFIGURATION}.bak"}
COPY = f"{HOME}/rdbms/lib/tdm/libnfstdm.so"
LIBRARY = f"{HOME}/lib/libnfstdm.so"


def added_files(machine):
    return {path for path in machine.additions() if not machine.path(path).is_dir()}


def copy_there_and_back(machine):
    """Takes a file to the server and back with the package's command, without any setting of the environment."""
    sent = bytes(range(256)) * 4321
    machine.path("/tmp/sent").write_bytes(sent)
    machine.run("tslwnfs", "cp", "/tmp/sent", "/mnt/wnfs/there")
    machine.run("tslwnfs", "cp", "/mnt/wnfs/there", "/tmp/back")
    assert machine.path("/tmp/served/there").read_bytes() == sent
    assert machine.path("/tmp/back").read_bytes() == sent


def build_and_run_the_example(machine, tree):
    examples = machine.receive(tree / "examples")
    machine.run("make", "-C", examples, env={"PKG_CONFIG_PATH": f"{HOME}/lib/pkgconfig"})
    machine.path("/tmp/served/name").touch()
    listed = machine.run(examples / "list", "/mnt/wnfs", env={"TESSEL_HOME": HOME})
    assert listed.stdout.split() == [".", "..", "name"]


def enable(machine):
    """Has the client enabled by a library that a newer package is to replace, and configured."""
    machine.run("tslwnfs", "wnfsenable")
    machine.path(COPY).write_bytes(b"an older library")
    machine.run("tslwnfs", "createtslnfstab", "-s", "nas1", "-em", "/vol,/mnt/vol")
    return machine.path(CONFIGURATION).read_bytes()


def assert_upgraded(machine, configuration):
    assert machine.path(CONFIGURATION).read_bytes() == configuration
    assert machine.path(COPY).read_bytes() == machine.path(LIBRARY).read_bytes()
    assert machine.run("tslwnfs", "getserverlist").stdout.splitlines()[0] == "nas1"
