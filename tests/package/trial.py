"""What every package has to stand, whichever its format."""

import machine_code

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


def pages_are_found(machine, *pages):
    for page in pages:
        assert machine.run("zcat", f"/usr/share/man/{page}.gz").stdout.startswith(r".\" SPDX"), page


def debug_files(machine):
    """Each program and library in the home with the file in which debuggers look for what belongs to it."""
    programs = machine_code.files_in(machine.path(HOME))
    assert len(programs) >= 3
    for program in programs:
        identity = machine_code.build_id(program)
        yield program, machine.path(f"/usr/lib/debug/.build-id/{identity[:2]}/{identity[2:]}.debug")


def make_examples(machine, examples):
    machine.run("make", "-C", examples)
    return examples


def build_examples_with_cmake(machine, examples):
    machine.run("cmake", "-S", examples, "-B", "/tmp/built")
    machine.run("cmake", "--build", "/tmp/built")
    return "/tmp/built"


def run_the_examples(machine, folder):
    """One is linked with the library, the other loads the copy that enables the client, as a database does."""
    (content := machine.path("/tmp/served/name")).write_bytes(b"content\n" * 10000)
    home = {"TESSEL_HOME": HOME}
    listed = machine.run(f"{folder}/list", "/mnt/wnfs", env=home)
    assert listed.stdout.split() == [".", "..", "name"]
    machine.run("cp", LIBRARY, COPY)
    assert machine.run(f"{folder}/read", COPY, "/mnt/wnfs/name", env=home).stdout == content.read_text()


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
