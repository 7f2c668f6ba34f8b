"""What bash and zsh offer for a command line, with the shells' own machinery at work.

The program is a stand-in that gives the program's answers; the last tests ask the installed program and a server.
"""

import contextlib
import os
import pathlib
import pty
import re
import select
import shutil
import subprocess

import pytest
import servers

ROOT = pathlib.Path(__file__).resolve().parents[2]
BASH = ROOT / "completions" / "tslwnfs.bash"
ZSH = ROOT / "completions"
HANG = 60  # seconds; a guard, not a measure
END = "--end--"

PROGRAM = r"""#!/bin/sh
verdict='TWNFS-65023: The command completed successfully.'
for last; do :; done
case "$*" in
getserverlist) printf '%s\n' nas1 lab.example "$verdict" ;;
'ls /mnt/wnfs/data')
    printf 'DIR %s : \n' "$last"; printf '%-31s \n' daily 'a b' .hidden names.txt; printf '%s\n' "$verdict" ;;
'ls -a /mnt/wnfs/data')
    printf 'DIR %s : \n. \n .. \n' "$last"; printf '%-31s \n' daily .hidden; printf '%s\n' "$verdict" ;;
ls*) printf 'DIR %s : \n%s\n' "$last" 'TWNFS-65022: The command failed with status 1.'; exit 1 ;;
*) [ -z "${ARGUMENTS-}" ] || printf '%s\n' "$@" --end-- >"/dev/fd/$ARGUMENTS" ;;
esac
"""

TSLNFSTAB = """#<server block begin>
server: nas1
export: /vol/backup \t mount: /mnt/wnfs/
#export: /vol/old \t mount: /mnt/old
export: /vol/logs \t mount: /mnt/logs
#<server block end>
"""


class Scene:
    """A home, a directory of programs, and a working directory with a few names. Without a home given there is one with
    a configuration and nothing else, and the program is the stand-in."""

    def __init__(self, base, home=None):
        self.home, self.bin, self.here = home or base / "home", base / "bin", base / "here"
        for folder in (self.bin, self.here / "folder"):
            folder.mkdir(parents=True)
        (self.here / "file.txt").touch()
        if home:
            (self.bin / "tslwnfs").symlink_to(home / "bin" / "tslwnfs")
        else:
            self._stand_in()

    def _stand_in(self):
        (self.home / "dbs").mkdir(parents=True)
        (self.home / "dbs" / "tslnfstab").write_text(TSLNFSTAB, encoding="utf-8")
        (self.bin / "tslwnfs").write_text(PROGRAM, encoding="utf-8")
        (self.bin / "tslwnfs").chmod(0o755)

    def environment(self, **more):
        return {
            "PATH": f"{self.bin}:/usr/bin:/bin",
            "HOME": str(self.here),
            "ZDOTDIR": str(self.here),
            "TESSEL_HOME": str(self.home),
            "LC_ALL": "C.UTF-8",
            "TERM": "dumb",
            "INPUTRC": "/dev/null",
            **more,
        }


@pytest.fixture(scope="module")
def place(tmp_path_factory):
    return Scene(tmp_path_factory.mktemp("place"))


class Bash:
    """Calls the completion function as readline would, and notes what it leaves to readline."""

    SCRIPT = r"""
        compopt() { printf 'compopt %s\n' "$*"; }
        source "$1"
        shift
        [[ $(complete -p tslwnfs) == 'complete -F _tslwnfs tslwnfs' ]] || exit 9
        COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMP_LINE="$*" COMP_POINT=${#COMP_LINE}
        _tslwnfs "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
        printf '%s\n' "${COMPREPLY[@]}"
    """

    def __init__(self, place):
        self.place = place

    def close(self):
        """Nothing is left open."""

    def offers(self, *words):
        done = subprocess.run(
            ["bash", "--norc", "--noprofile", "-c", self.SCRIPT, "bash", BASH, "tslwnfs", *words],
            capture_output=True,
            text=True,
            timeout=HANG,
            env=self.place.environment(),
            cwd=self.place.here,
            check=False,
        )
        assert (done.returncode, done.stderr) == (0, "")
        offered = set(filter(None, done.stdout.split("\n")))
        if offered & {"compopt -o default", "compopt -o dirnames"}:
            offered |= {name.name for name in self.place.here.iterdir() if name.name.startswith(words[-1])}
        return {word for word in offered if not word.startswith("compopt ")}


class Terminal:
    """An interactive shell on a terminal of its own. What the shell or its programs write to `report` is read back."""

    def __init__(self, command, place, setup=""):
        self.master, slave = pty.openpty()
        self.report, report = os.pipe()
        self.process = subprocess.Popen(
            command,
            stdin=slave,
            stdout=slave,
            stderr=slave,
            start_new_session=True,
            pass_fds=[report],
            env=place.environment(ARGUMENTS=str(report)),
            cwd=place.here,
        )
        os.close(slave)
        os.close(report)
        self.said = b""  # what the shell printed, for a failing test
        # The first prompt's line editor may drop what was typed ahead of it, so wait until the shell runs commands.
        self.lines_after(f"{setup}\nprintf '%s\\n' ready {END} >&$ARGUMENTS\n")

    def lines_after(self, keys):
        """Types keys, and gives the lines reported up to the end mark."""
        os.write(self.master, keys.encode())
        text = b""
        while not text.endswith(f"{END}\n".encode()):
            ready, _, _ = select.select([self.master, self.report], [], [], HANG)
            assert ready, f"the shell went silent: {self.said!r}"
            if self.master in ready:
                self.said += os.read(self.master, 65536)
            if self.report in ready:
                piece = os.read(self.report, 65536)
                assert piece, f"the shell ended: {self.said!r}"
                text += piece
        return text.decode().splitlines()[:-1]

    def close(self):
        self.process.kill()
        self.process.wait()
        os.close(self.master)
        os.close(self.report)


class Zsh:
    """Lets the completion system complete in a line editor, and reports what it would have offered."""

    SETUP = r"""
        fpath=(COMPLETIONS $fpath)
        autoload -Uz compinit && compinit -D -u
        compadd() {
            if [[ ${@[1,(i)(-|--)]} == *-[OAD]* ]]; then builtin compadd "$@"; return; fi
            local -a hits
            builtin compadd -O hits "$@"
            (( $#hits )) && print -rlu $ARGUMENTS -- $IPREFIX$^hits
        }
        note_end() { print -ru $ARGUMENTS -- --end-- }
        report_offers() { comppostfuncs=(note_end); zle complete-word; zle kill-whole-line }
        zle -N report_offers
        zle -C complete-word .complete-word _main_complete
        bindkey '^I' report_offers
    """

    def __init__(self, place):
        setup = place.here / ".setup"
        setup.write_text(self.SETUP.replace("COMPLETIONS", f"{ZSH}"), encoding="utf-8")
        self.terminal = Terminal(["zsh", "-f", "-i"], place, ". ./.setup")

    def offers(self, *words):
        quoted = [re.sub(r"([^\w/.:=@%+-])", r"\\\1", word) for word in ("tslwnfs", *words)]
        return set(self.terminal.lines_after(" ".join(quoted) + "\t"))

    def close(self):
        self.terminal.close()


@pytest.fixture(params=["bash", "zsh"], scope="module")
def shell(request, place):
    if not shutil.which(request.param):
        pytest.skip(f"{request.param} is not installed")
    with contextlib.closing({"bash": Bash, "zsh": Zsh}[request.param](place)) as chosen:
        yield chosen


def source(name):
    return (ROOT / name).read_text(encoding="utf-8")


def command_words():
    """The words of the command table, but for those that nobody would complete."""
    found = re.findall(r"\.words = \{([^}]*)\}", source("tslwnfs/frontend/command_table.cpp"))
    return {word for row in found for word in re.findall(r'"([^"]+)"', row)} - {"?", "h", "DD"}


def setting_options(table):
    """The option words of one table of a grammar."""
    text = "".join(path.read_text(encoding="utf-8") for path in sorted((ROOT / "tslwnfs/options").glob("*.cpp")))
    rows = re.search(rf"{table}\[\] = \{{(.*?)^\}};", text, re.DOTALL | re.MULTILINE)[1]
    return set(re.findall(r'\{"(-[a-z]+)", ', rows))


def test_every_command_is_offered(shell):
    assert shell.offers("") == command_words()


def test_a_beginning_narrows_the_commands(shell):
    assert shell.offers("createt") == {"createtslnfstab"}
    assert shell.offers("get_ip") == {"get_ip_subnet", "get_ip_subnetv4", "get_ip_subnetv6"}


def test_global_options_are_offered_in_their_order(shell):
    assert shell.offers("-") == {"-trace", "-level", "-log"}
    assert shell.offers("-trace", "out.trc", "-") == {"-level", "-log"}
    assert shell.offers("-trace", "-level", "1", "1", "1", "1", "-") == {"-log"}
    assert shell.offers("-log", "f", "-") == set()


def test_commands_are_offered_behind_global_options(shell):
    assert shell.offers("-trace", "out.trc", "-level", "3", "3", "3", "3", "-log", "f", "wnfsd") == {"wnfsdisable"}
    assert shell.offers("-trace", "mkdir", "-") == {"-p"}
    assert shell.offers("-level", "3", "") == {"0", "1", "2", "3", "4"}


def test_a_trace_file_or_a_command_may_follow_the_trace_option(shell):
    assert shell.offers("-trace", "f") == {"file.txt", "folder", "find", "fsstat", "fsinfo"}


@pytest.mark.parametrize(
    "words, options",
    [
        (["copy"], "-i -r"),
        (["cp"], "-i -r"),
        (["rm", "-r"], "-i -r"),
        (["mv"], "-i"),
        (["mkdir"], "-p"),
        (["stat"], "-f -l -c"),
        (["ls"], "-1 -B -C -l -a -A -t -c -u -d -e -R -S -r -s"),
        (["dd"], "-if -of -bs -ibs -obs -count -skip -seek -p"),
        (["display_server"], "-s"),
        (["delete_server"], "-s"),
        (["disablerdma"], "-s"),
        (["enablerdma"], "-s -p"),
        (["mount_script"], "-e -m"),
        (["umount_script"], "-m"),
        (["showmount"], "-e"),
        (["wnfsdisable"], "-deletetslnfstab -deletetdmdir"),
        (["restore"], "-y"),
        (["isPathOnWNFS"], "-oh -path"),
        (["getsubnetmask"], "-ip"),
        (["cat"], ""),
        (["getserverlist"], ""),
    ],
    ids=lambda value: "-".join(value) if isinstance(value, list) else "",
)
def test_the_options_of_a_command_are_offered(shell, words, options):
    offered = shell.offers(*words, "-")
    given = set(words[1:])  # zsh does not offer an option twice
    assert offered | given == set(options.split())


@pytest.mark.parametrize(
    "words, table, more",
    [
        (["createtslnfstab"], "kServerOptions", set()),
        (["mount", "srv:/vol", "/mnt/wnfs"], "kMountOptions", set()),
        (["find", "/tmp"], "kFindOptions", {"-exec"}),
    ],
    ids=["createtslnfstab", "mount", "find"],
)
def test_the_options_of_a_grammar_are_offered(shell, words, table, more):
    expected = setting_options(table) | more
    assert len(expected) > 5
    # bash cuts "srv:/vol" at the colon, as readline does.
    if isinstance(shell, Bash):
        words = [piece for word in words for piece in re.findall(r":|[^:]+", word)]
    assert shell.offers(*words, "-") == expected


def test_options_end_at_the_operand(shell):
    assert shell.offers("copy", "file.txt", "-") == set()
    assert shell.offers("ls", "/tmp", "-") == set()


@pytest.mark.parametrize("words", [["display_server", "-s"], ["enablerdma", "-p", "1", "-s"], ["createtslnfstab", "-s"]])
def test_server_names_are_asked_of_the_program(shell, words):
    assert shell.offers(*words, "") == {"nas1", "lab.example"}
    assert shell.offers(*words, "l") == {"lab.example"}


def test_other_values_are_offered_by_their_kind(shell):
    assert shell.offers("find", "/tmp", "-type", "") == {"d", "f"}
    assert shell.offers("createtslnfstab", "-v", "") == {"nfsv3", "nfsv4", "nfsv4.1", "nfsv4.2"}
    assert shell.offers("stat", "-c", "") == set()
    assert shell.offers("dd", "-bs", "") == set()


def test_local_paths_are_offered(shell):
    assert shell.offers("copy", "f") == {"file.txt", "folder"}
    assert shell.offers("copy", "-r", "file.txt", "f") == {"file.txt", "folder"}
    assert shell.offers("dd", "-if", "fi") == {"file.txt"}
    assert shell.offers("-log", "fi") == {"file.txt"}


def test_mount_points_are_offered_although_no_such_directory_exists(shell):
    assert shell.offers("ls", "/mnt/") >= {"/mnt/wnfs", "/mnt/logs"}
    assert "/mnt/old" not in shell.offers("ls", "/mnt/o")
    assert shell.offers("umount", "/mnt/w") == {"/mnt/wnfs"}


def test_below_a_mount_point_the_names_of_the_server_are_offered(shell):
    names = ("daily", "a b", ".hidden", "names.txt")
    assert shell.offers("cat", "/mnt/wnfs/data/") == {f"/mnt/wnfs/data/{name}" for name in names}
    assert shell.offers("copy", "file.txt", "/mnt/wnfs/data/da") == {"/mnt/wnfs/data/daily"}
    assert shell.offers("cat", "/mnt/wnfs/data/.") == {"/mnt/wnfs/data/.hidden"}


def test_a_directory_that_cannot_be_listed_offers_nothing(shell):
    assert shell.offers("cat", "/mnt/wnfs/gone/") == set()


def test_without_a_configuration_local_paths_are_offered(shell, tmp_path):
    place = Scene(tmp_path)
    (place.home / "dbs" / "tslnfstab").unlink()
    with contextlib.closing(type(shell)(place)) as bare:
        assert bare.offers("ls", "fo") == {"folder"}
        assert bare.offers("cat", "/mnt/wnfs/data/") == set()


def test_bash_completes_a_typed_line(place):
    """The whole way: keys, readline, the completion, and the program run with the words."""
    with contextlib.closing(Terminal(["bash", "--norc", "--noprofile", "-i"], place, f". '{BASH}'")) as terminal:
        assert terminal.lines_after("tslwnfs display_s\t-s na\t\n") == ["display_server", "-s", "nas1"]
        assert terminal.lines_after("tslwnfs cat /mnt/wn\t/data/a\t\n") == ["cat", "/mnt/wnfs/data/a b"]
        assert terminal.lines_after("tslwnfs copy fi\tfo\t\n") == ["copy", "file.txt", "folder/"]


@pytest.fixture(params=["bash", "zsh"])
def real_shell(request, own, tmp_path):
    """A shell with the installed program in it, whose server is a running loopnfsd."""
    if not shutil.which(request.param):
        pytest.skip(f"{request.param} is not installed")
    served = tmp_path / "served"
    for folder in ("data/Daily Log", "data/.hidden", "other"):
        (served / folder).mkdir(parents=True)
    (served / "data" / "names.txt").touch()
    place = Scene(tmp_path / "place", own.home)
    with contextlib.closing(servers.LoopnfsdProcess(own.home, served)) as daemon:
        own.ok("createtslnfstab", "-s", "nas7", "-lp", f"127.0.0.1,{daemon.address}", "-em", "/export,/mnt/nas7")
        own.ok("createtslnfstab", "-s", "lab7")
        with contextlib.closing({"bash": Bash, "zsh": Zsh}[request.param](place)) as shell:
            yield shell


def test_the_installed_program_gives_the_server_names(real_shell):
    assert real_shell.offers("delete_server", "-s", "") == {"nas7", "lab7"}
    assert real_shell.offers("display_server", "-s", "n") == {"nas7"}


def test_the_installed_program_lists_what_the_server_has(real_shell):
    assert real_shell.offers("ls", "/mnt/n") == {"/mnt/nas7"}
    assert real_shell.offers("ls", "/mnt/nas7/") == {"/mnt/nas7/data", "/mnt/nas7/other"}
    assert real_shell.offers("cat", "/mnt/nas7/data/") == {"/mnt/nas7/data/Daily Log", "/mnt/nas7/data/names.txt"}
    assert real_shell.offers("cp", "file.txt", "/mnt/nas7/data/D") == {"/mnt/nas7/data/Daily Log"}
    assert real_shell.offers("cat", "/mnt/nas7/data/.") == {"/mnt/nas7/data/.hidden"}
    assert real_shell.offers("cat", "/mnt/nas7/none/") == set()


@pytest.mark.parametrize(
    "name, place_in_home",
    [("tslwnfs.bash", "share/bash-completion/completions/tslwnfs"), ("_tslwnfs", "share/zsh/site-functions/_tslwnfs")],
)
def test_a_completion_is_installed(installed_home, name, place_in_home):
    assert (installed_home / place_in_home).read_text(encoding="utf-8") == source(f"completions/{name}")
