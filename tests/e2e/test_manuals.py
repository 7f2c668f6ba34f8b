"""The manual pages name what the sources define, and nothing is forgotten in them."""

import pathlib
import re
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = ("tslwnfs.1", "tslnfstab.5", "tdm.3", "loopnfsd.8")


def source(name):
    return (ROOT / name).read_text(encoding="utf-8")


def items(page):
    """The heads of a page's lists, one text each, with continued lines joined."""
    text = source(f"man/{page}").replace("\\\n", "")
    return re.findall(r"^\.It (.*)$", text, re.MULTILINE)


def item_words(page, macro):
    """The words that stand behind a macro in the heads of a page's lists."""
    words = set()
    for head in items(page):
        for run in re.findall(rf"\b{macro} ((?:(?!(?:Ar|Cm|Fl|Op|Oo|Oc|Ns|Ta|Dv|Vt|Ev|Pa)\b)\S+ ?)+)", head):
            words.update(word.removeprefix("\\&") for word in run.split() if word not in ("|", ",", ":", ";"))
    return words


def command_words():
    found = re.findall(r"\.words = \{([^}]*)\}", source("tslwnfs/frontend/command_table.cpp"))
    words = {word for row in found for word in re.findall(r'"([^"]+)"', row)}
    assert len(words) > 40
    return words


def option_words():
    """The options that are whole words; letters are examined one by one and stand in no table."""
    words = set()
    for path in [*(ROOT / "tslwnfs/options").glob("*.cpp"), ROOT / "tslwnfs/frontend/command_line.cpp"]:
        words.update(re.findall(r'"-([a-z]{1,20})"', path.read_text(encoding="utf-8")))
    assert {"lp", "maxdepth", "trace", "deletetdmdir", "ibs"} <= words
    return words


def library_keys():
    keys = set(re.findall(r'\{Key::\w+, [^"]*"([a-z_]+)"', source("nfstdm/mounts/tslnfstab_keys.cpp")))
    assert {"server", "export", "nconnect"} <= keys
    return keys


def message_numbers(catalogue):
    numbers = {int(number) for number in re.findall(r"^(\d{5}) ", catalogue.read_text(encoding="utf-8"), re.MULTILINE)}
    assert len(numbers) > 60
    return numbers


def documented_numbers():
    numbers = set()
    for head in items("tslwnfs.1"):
        if match := re.fullmatch(r"(65\d{3})(?: to (65\d{3}))?", head):
            first, last = int(match[1]), int(match[2] or match[1])
            numbers.update(range(first, last + 1))
    return numbers


def entries():
    """The diagnostics of tslwnfs(1): what stands below each head that is a message number."""
    text = source("man/tslwnfs.1").split(".Sh DIAGNOSTICS")[1]
    return re.findall(r"^\.It (65\d{3}[^\n]*)\n(.*?)(?=^\.It |^\.El)", text, re.DOTALL | re.MULTILINE)


def number_defaults():
    """The keys of tslnfstab that are numbers with a default of their own, and these defaults."""
    reader, config = source("nfstdm/mounts/tslnfstab.cpp"), source("nfstdm/volume/server_config.h")
    fields = re.findall(r"case Key::(\w+):\s*return take_number\(setting, current_\.(\w+)", reader)
    values = dict(re.findall(r"^    uint\w+ (\w+) = (\d+);", config, re.MULTILINE))
    # 0 is no number that one could write: it stands for "ask the portmapper".
    found = {key: values[field] for key, field in fields if values.get(field, "0") != "0"}
    assert {"mnt_timeout", "io_timeout", "nconnect"} <= set(found)
    return found


def key_entry(key):
    """What tslnfstab(5) says of a key. Keys of the same meaning share an entry under several heads."""
    text = source("man/tslnfstab.5")
    return re.search(rf"^\.It Cm {key} :.*\n(?:\.It .*\n)*((?:(?!\.It |\.El).*\n)*)", text, re.MULTILINE)[1]


def loopnfsd_help(home):
    """The summary of loopnfsd in its parts: options, faults, commands of the control."""
    done = subprocess.run([home / "bin" / "loopnfsd", "--help"], capture_output=True, text=True, check=True)
    return re.match(r"(.*?)^Faults (.*?)^Commands of the control: (.*?)\sEach is answered", done.stdout, re.DOTALL | re.MULTILINE).groups()


def interface():
    """tdm.h without its comments."""
    return re.sub(r"/\*.*?\*/", "", source("include/tdm.h"), flags=re.DOTALL)


def test_every_command_word_has_an_entry():
    assert command_words() - item_words("tslwnfs.1", "Cm") == set()


def test_every_option_word_has_an_entry():
    text = source("man/tslwnfs.1")
    assert {word for word in option_words() if not re.search(rf"\bFl {word}\b", text)} == set()


@pytest.mark.parametrize("letters, command", [("1BClaAtcudeRSrs", "ls"), ("flc", "stat"), ("ir", "copy")])
def test_every_option_letter_stands_at_its_command(letters, command):
    text = source("man/tslwnfs.1")
    body = re.search(rf"^\.It Cm (?:\w+ \| )*{command}\b[^\n]*\n(.*?)(?=^\.It Cm )", text, re.DOTALL | re.MULTILINE)[1]
    described = "".join(re.findall(r"\bFl ([^\n]*)", body))
    assert [letter for letter in letters if letter not in described] == []


def test_every_language_has_an_entry():
    languages = {path.name.split(".")[1] for path in (ROOT / "catalogue").glob("tslwnfs.*.msg")} - {"en"}
    text = source("man/tslwnfs.1")
    assert languages
    assert {language for language in languages if not re.search(rf"^\.Pq Cm {language}\b", text, re.MULTILINE)} == set()


def test_every_message_of_the_english_catalogue_has_an_entry_and_no_other():
    assert documented_numbers() == message_numbers(ROOT / "catalogue" / "tslwnfs.en.msg")


def test_every_message_is_explained():
    plain = {number: re.sub(r"^\.Pq [^\n]*\n", "", body).strip() for number, body in entries()}
    assert len(plain) > 60
    assert [number for number, body in plain.items() if len(body) < 20] == []


def test_every_variable_of_the_environment_has_an_entry():
    name = re.compile(r'"((?:TESSEL|NFSTDM|TSLWNFS|LC)_[A-Z_]+|NLSPATH|LANG)"')
    read = set()
    for part in ("platform", "tslwnfs", "nfstdm"):
        for path in (ROOT / part).rglob("*.cpp"):
            read.update(name.findall(path.read_text(encoding="utf-8")))
    assert {"TESSEL_HOME", "NLSPATH", "NFSTDM_BLOCK_SIZE"} <= read
    assert read - item_words("tslwnfs.1", "Ev") == set()


def test_every_key_that_the_library_reads_has_an_entry():
    assert library_keys() - item_words("tslnfstab.5", "Cm") == set()


def test_every_key_that_may_be_left_out_tells_its_default():
    for key in library_keys() - {"server", "export", "mount"}:
        assert re.search(r"\bDefault\b", key_entry(key)), key


def test_the_defaults_told_are_those_of_the_library():
    for key, default in number_defaults().items():
        assert f"Default: {default}." in key_entry(key), key


def test_every_option_of_loopnfsd_has_an_entry(installed_home):
    options = set(re.findall(r"^  --([a-z-]+)", loopnfsd_help(installed_home)[0], re.MULTILINE))
    assert {"export", "port", "control", "send"} <= options
    assert options - {word.removeprefix("-") for word in item_words("loopnfsd.8", "Fl")} == set()


def test_every_fault_of_loopnfsd_has_an_entry(installed_home):
    faults = set(re.findall(r"^  ([a-z-]+)", loopnfsd_help(installed_home)[1], re.MULTILINE))
    assert {"silent", "status", "wrong-xid"} <= faults
    assert faults - item_words("loopnfsd.8", "Cm") == set()


def test_every_command_of_loopnfsds_control_has_an_entry(installed_home):
    commands = set(re.findall(r'"([a-z-]+)(?: \[NAME\])?"', loopnfsd_help(installed_home)[2]))
    assert {"clear", "stats", "ping"} <= commands
    assert commands - item_words("loopnfsd.8", "Cm") == set()


def test_every_function_has_a_synopsis():
    declared = set(re.findall(r"^uint32_t (tdm_\w+)\(", interface(), re.MULTILINE))
    assert len(declared) == 30
    assert declared == set(re.findall(r"^\.F[no] (tdm_\w+)(?= \"|$)", source("man/tdm.3"), re.MULTILINE))


def test_every_record_has_an_entry_that_names_its_fields():
    text = source("man/tdm.3")
    for body, record in re.findall(r"typedef struct \w+ \{(.*?)\} (\w+);", interface(), re.DOTALL):
        entry = re.search(rf"^\.It Vt {record}$.*?(?=^\.It |^\.El)", text, re.DOTALL | re.MULTILINE)[0]
        fields = re.findall(r"(\w+)(?:\[\w+\])?;", body)
        assert fields
        # The library's own bytes are summed up, as are the nanoseconds beside the seconds.
        spoken_for = re.compile(r"library_\w+|\w+_spare|reserved|\w+_nanoseconds")
        missing = [field for field in fields if not spoken_for.fullmatch(field) and field not in entry]
        assert missing == [], record


def test_every_constant_is_explained():
    constants = set(re.findall(r"\bTDM_[A-Z_]+\b", interface())) - {"TDM_H"}
    text = source("man/tdm.3")
    assert {name for name in constants if not re.search(rf"\bDv {name}\b", text)} == set()


def test_the_example_program_compiles(tmp_path):
    program = re.search(r"^\.Bd -literal\n(#include.*?)^\.Ed", source("man/tdm.3"), re.DOTALL | re.MULTILINE)[1]
    example = tmp_path / "print.c"
    example.write_text(program.replace("\\e", "\\"), encoding="utf-8")
    warnings = ["-std=c11", "-Wall", "-Wextra", "-Werror"]
    done = subprocess.run(
        ["cc", *warnings, "-fsyntax-only", "-I", ROOT / "include", example], capture_output=True, text=True, check=False
    )
    assert done.returncode == 0, done.stderr


@pytest.fixture
def mandoc():
    if not shutil.which("mandoc"):
        pytest.skip("mandoc is not installed")
    return lambda *words: subprocess.run(["mandoc", *words], capture_output=True, text=True, check=False)


@pytest.mark.parametrize("page", PAGES)
def test_a_page_is_clean(mandoc, page):
    done = mandoc("-T", "lint", "-W", "warning", ROOT / "man" / page)
    assert (done.returncode, done.stdout) == (0, "")


@pytest.mark.parametrize("page", PAGES)
def test_a_page_fits_a_terminal_of_80_columns(mandoc, page):
    shown = mandoc("-T", "utf8", "-O", "width=80", ROOT / "man" / page)
    assert shown.returncode == 0, shown.stderr
    lines = re.sub(r".\x08", "", shown.stdout).splitlines()  # what is struck over is bold or underlined
    assert len(lines) > 50
    assert [line for line in lines if len(line) > 80] == []


@pytest.mark.parametrize("page", PAGES)
def test_a_page_is_installed(installed_home, page):
    installed = installed_home / "share" / "man" / f"man{page[-1]}" / page
    assert installed.read_text(encoding="utf-8") == source(f"man/{page}")
