"""The Debian package: what it says of itself, and its life on a machine."""

import gzip
import io
import re
import shutil
import subprocess
import tarfile

import pytest
import trial


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def field(deb, name):
    return output_of("dpkg-deb", "--field", deb, name).strip()


@pytest.fixture
def dpkg(machine):
    """Triggers are other packages' work: an index of all manual pages takes longer than everything here."""
    return lambda *words: machine.run("dpkg", "--no-triggers", *words)


@pytest.fixture
def install(machine, dpkg):
    """Installs a package; a machine that leaves out documents gets them all the same."""
    return lambda deb: dpkg("--path-include=*", "--install", machine.receive(deb))


def test_it_depends_on_the_c_library_alone(deb):
    assert re.fullmatch(r"libc6 \(>= [0-9.]+\)", field(deb, "Depends"))


def test_everybody_may_read_all_of_it(deb):
    modes = {line.split()[0] for line in output_of("dpkg-deb", "--contents", deb).splitlines()}
    assert modes == {"drwxr-xr-x", "-rwxr-xr-x", "-rw-r--r--", "lrwxrwxrwx"}


def test_lintian_finds_nothing(deb):
    if not shutil.which("lintian"):
        pytest.skip("lintian is not installed")
    done = subprocess.run(
        ["lintian", "--fail-on", "error,warning", deb], capture_output=True, text=True, check=False
    )
    assert done.returncode == 0, done.stdout


def text_in(deb, name):
    """A compressed document of the package."""
    content = subprocess.run(["dpkg-deb", "--fsys-tarfile", deb], check=True, capture_output=True).stdout
    with tarfile.open(fileobj=io.BytesIO(content)) as files:
        return gzip.decompress(files.extractfile(f"./usr/share/doc/tslwnfs/{name}").read()).decode()


def test_its_changelogs_begin_with_its_version_and_say_who_made_it_and_when(deb):
    version, maintainer = field(deb, "Version"), field(deb, "Maintainer")
    lines = text_in(deb, "changelog.Debian.gz").splitlines()
    assert lines[0].startswith(f"tslwnfs ({version}) ")
    assert re.fullmatch(rf" -- {maintainer}  \w{{3}}, \d\d \w{{3}} \d{{4}} \d\d:\d\d:\d\d \+0000", lines[-1])
    headings = re.findall(r"^## (.*)$", text_in(deb, "changelog.gz"), re.MULTILINE)
    assert re.fullmatch(rf"{version.split('-')[0]} - \d{{4}}-\d\d-\d\d", headings[0])


def test_what_there_is_to_read_comes_with_it(deb, tree):
    """With the folders beside the README that its links lead to."""
    contents = output_of("dpkg-deb", "--contents", deb)
    names = ["README.md", *(str(path.relative_to(tree)) for folder in ("docs", "examples") for path in (tree / folder).glob("*.*"))]
    assert len(names) > 6
    for name in names:
        assert f"./usr/share/doc/tslwnfs/{name}\n" in contents, name


def test_a_file_goes_to_a_server_and_comes_back(machine, install, serve, deb):
    install(deb)
    serve()
    trial.copy_there_and_back(machine)


def test_another_home_may_be_named(machine, install, deb):
    install(deb)
    machine.path("/tmp/other/dbs").mkdir(parents=True)
    machine.run("tslwnfs", "createtslnfstab", "-s", "nas1", env={"TESSEL_HOME": "/tmp/other"})
    assert machine.path("/tmp/other/dbs/tslnfstab").exists()
    assert not machine.path(trial.CONFIGURATION).exists()


def test_its_pages_and_completions_are_where_they_are_looked_for(machine, install, deb):
    install(deb)
    for page in ("man1/tslwnfs.1", "man3/tdm.3", "man5/tslnfstab.5", "man8/loopnfsd.8"):
        assert machine.run("zcat", f"/usr/share/man/{page}.gz").stdout.startswith(r".\" SPDX"), page
    for completion in ("bash-completion/completions/tslwnfs", "zsh/vendor-completions/_tslwnfs"):
        assert "getserverlist" in machine.run("cat", f"/usr/share/{completion}").stdout


@pytest.mark.parametrize(
    "shell, file, read",
    [
        ("bash", "bash-completion/completions/tslwnfs", "_tslwnfs_mount_points"),
        ("zsh", "zsh/vendor-completions/_tslwnfs", "_tslwnfs_read_mount_points; print -l $reply"),
    ],
)
def test_its_completions_know_the_mount_points_of_its_home(machine, install, deb, shell, file, read):
    if not shutil.which(shell):
        pytest.skip(f"{shell} is not installed")
    install(deb)
    machine.run("tslwnfs", "createtslnfstab", "-s", "nas1", "-em", "/vol,/mnt/vol")
    # Outside a completion zsh's functions are defined, and the call at the file's end fails.
    assert machine.run(shell, "-c", f". /usr/share/{file} 2>/dev/null; {read}").stdout == "/mnt/vol\n"


def test_a_program_is_built_against_it(machine, install, serve, deb, tree):
    install(deb)
    serve()
    trial.build_and_run_the_example(machine, tree)


def test_an_upgrade_keeps_the_configuration_and_renews_the_copy_of_the_library(machine, install, deb, next_deb):
    install(deb)
    configuration = trial.enable(machine)
    install(next_deb)
    trial.assert_upgraded(machine, configuration)


def test_an_upgrade_does_not_enable_the_client(machine, install, deb, next_deb):
    install(deb)
    install(next_deb)
    assert not machine.path(trial.COPY).exists()


def test_a_removal_keeps_the_configuration_alone(machine, install, dpkg, deb):
    install(deb)
    configuration = trial.enable(machine)
    dpkg("--remove", "tslwnfs")
    assert machine.path(trial.CONFIGURATION).read_bytes() == configuration
    assert trial.added_files(machine) <= trial.CONFIGURATION_FILES


def test_a_purge_leaves_nothing(machine, install, dpkg, serve, deb):
    install(deb)
    trial.enable(machine)
    serve()
    machine.run("tslwnfs", "save")
    machine.run("tslwnfs", "umount", "/mnt/wnfs")
    dpkg("--purge", "tslwnfs")
    assert machine.additions() == set()


def test_a_purge_keeps_what_others_put_into_the_home(machine, install, dpkg, deb):
    install(deb)
    machine.path(f"{trial.HOME}/dbs/note").touch()
    dpkg("--purge", "tslwnfs")
    assert trial.added_files(machine) == {f"{trial.HOME}/dbs/note"}
