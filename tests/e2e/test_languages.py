"""The locale chooses the language of the messages, and of nothing else."""

import pathlib
import re

import pytest
from terminal import Terminal
from texts import NO_CATALOGUE, SUCCEEDED, banner, message

CATALOGUE = pathlib.Path(__file__).resolve().parents[2] / "catalogue"
LANGUAGES = sorted(path.name.split(".")[1] for path in CATALOGUE.glob("tslwnfs.*.msg"))
TERRITORY = {"de": "AT", "en": "GB", "fr": "CA", "ja": "JP"}
NO_LOCALE = {"LC_ALL": None, "LC_MESSAGES": None, "LANG": None}


def text(language, number):
    """A message's text in a language, by the catalogue's source."""
    source = (CATALOGUE / f"tslwnfs.{language}.msg").read_text(encoding="utf-8")
    return re.search(rf'^{number} "(.*)"$', source, re.MULTILINE)[1].replace("\\n", "\n")


def listing(client, folder, **locale):
    return client.ok("ls", folder, env={**NO_LOCALE, **locale})


@pytest.fixture
def folder(tmp_path):
    place = tmp_path / "d"
    place.mkdir()
    return place


def succeeded(language):
    return message(65023, text(language, 65023))


@pytest.mark.parametrize("language", LANGUAGES)
def test_a_catalogue_is_installed_under_the_name_of_its_language(installed_home, language):
    assert (installed_home / "rdbms" / "mesg" / language / "tslwnfs.cat").is_file()


@pytest.mark.parametrize("language", LANGUAGES)
@pytest.mark.parametrize("variable", ["LC_ALL", "LC_MESSAGES", "LANG"])
def test_each_variable_of_the_locale_chooses_the_language(local, folder, variable, language):
    locale = f"{language}_{TERRITORY.get(language, 'XX')}.UTF-8"
    assert listing(local, folder, **{variable: locale}) == banner("DIR", folder) + succeeded(language)


@pytest.mark.parametrize("locale", ["fr", "fr_CH", "fr_CH.utf8", "fr.UTF-8", "fr_FR.UTF-8@euro", "fr@euro"])
def test_every_form_of_a_locale_leads_to_its_language(local, folder, locale):
    assert listing(local, folder, LANG=locale).endswith(succeeded("fr"))


@pytest.mark.parametrize("locale", ["de_DE.ISO-8859-1", "fr_FR.ISO8859-15@euro", "ja_JP.eucJP", "ja_JP.UTF-8"])
def test_texts_are_in_the_codeset_that_the_locale_names(local, locale):
    codeset = re.search(r"\.([^@]*)", locale)[1]
    # The summary has characters beyond ASCII in every language.
    assert text(locale[:2], 65051).encode(codeset) in local.run(env={"LC_ALL": locale}).out


def test_a_text_that_the_codeset_lacks_characters_for_is_english(local, folder):
    assert listing(local, folder, LC_ALL="ja_JP.ISO-8859-1") == banner("DIR", folder) + SUCCEEDED
    assert listing(local, folder, LC_ALL="ja_JP.no-such-codeset") == banner("DIR", folder) + SUCCEEDED


def test_the_variables_count_in_their_order(local, folder):
    assert listing(local, folder, LC_ALL="de", LC_MESSAGES="fr", LANG="ja").endswith(succeeded("de"))
    assert listing(local, folder, LC_MESSAGES="fr", LANG="ja").endswith(succeeded("fr"))
    assert listing(local, folder, LC_ALL="", LC_MESSAGES="", LANG="ja").endswith(succeeded("ja"))


@pytest.mark.parametrize("locale", ["C", "POSIX", "C.UTF-8", "xx_YY.UTF-8", "german", "..", "../de", "de/../fr", ""])
def test_other_locales_and_none_get_english(local, folder, locale):
    assert listing(local, folder, LC_ALL=locale) == banner("DIR", folder) + SUCCEEDED


def test_a_language_whose_file_is_missing_or_damaged_gets_english(own, folder):
    german = own.home / "rdbms" / "mesg" / "de" / "tslwnfs.cat"
    german.write_bytes(b"rubbish")
    assert listing(own, folder, LANG="de_DE.UTF-8").endswith(SUCCEEDED)
    german.unlink()
    assert listing(own, folder, LANG="de_DE.UTF-8").endswith(SUCCEEDED)


def test_without_english_too_the_missing_texts_are_told(own, folder):
    for language in ("de", "en"):
        (own.home / "rdbms" / "mesg" / language / "tslwnfs.cat").unlink()
    assert NO_CATALOGUE in listing(own, folder, LANG="de_DE.UTF-8")
    assert listing(own, folder, LANG="ja_JP.UTF-8").endswith(succeeded("ja"))


def test_a_search_path_of_messages_comes_before_the_home(local, folder):
    french = local.home / "rdbms" / "mesg" / "fr" / "tslwnfs.cat"
    assert listing(local, folder, LANG="de_DE.UTF-8", NLSPATH=french).endswith(succeeded("fr"))
    search = local.home / "rdbms" / "mesg" / "%l" / "%N.cat"
    assert listing(local, folder, LANG="de_DE.UTF-8", NLSPATH=search).endswith(succeeded("de"))


@pytest.mark.parametrize("language", LANGUAGES)
def test_arguments_stand_where_the_language_puts_them(local, tmp_path, language):
    (tmp_path / "a").write_text("new")
    (tmp_path / "b").write_text("old")
    printed = local.ok("cp", tmp_path / "a", tmp_path / "b", env={"LC_ALL": language})
    assert message(65018, text(language, 65018).replace("%s", str(tmp_path / "b"))) in printed
    assert local.run("rmdir", tmp_path / "none", env={"LC_ALL": language}).out.endswith(
        message(65022, text(language, 65022).replace("%u", "1"))
    )


@pytest.mark.parametrize("language", LANGUAGES)
def test_the_usage_is_of_the_language(local, language):
    usage = local.run(env={"LC_ALL": language}).out.decode()
    assert all(text(language, number) in usage for number in range(65051, 65059))


@pytest.mark.parametrize("language", LANGUAGES)
def test_the_trace_and_the_log_are_of_the_language(local, tmp_path, language):
    trace, log = tmp_path / "t", tmp_path / "l"
    local.run("-trace", trace, "-level", *"3333", "-log", log, "ls", tmp_path / "none", env={"LC_ALL": language})
    assert text(language, 65013).split("%s")[-1] in trace.read_text(encoding="utf-8")
    assert text(language, 65022).split("%u")[0] in log.read_text(encoding="utf-8")


# What is typed, and what is read in each language. {0} is a local directory.
READ = {
    "a mistyped command": (
        ["cpoy", "a", "b"],
        {
            "en": "cpoy is no command; did you mean copy?",
            "de": "cpoy ist kein Befehl; war copy gemeint?",
            "fr": "cpoy n'est pas une commande ; vouliez-vous dire copy ?",
            "ja": "cpoyというコマンドはありません; copyではありませんか",
        },
    ),
    "a word that is skipped": (
        ["find", "{0}", "-empty"],
        {
            "en": "warning: find: -empty is not known and was skipped",
            "de": "Warnung: find: -empty ist unbekannt und wurde übergangen",
            "fr": "avertissement : find : -empty est inconnu et a été ignoré",
            "ja": "警告: find: -emptyは認識されないため無視されました",
        },
    ),
    "a directory without -r": (
        ["rm", "{0}"],
        {
            "en": "{0} is a directory; with -r it is deleted, too",
            "de": "{0} ist ein Verzeichnis; mit -r wird es mitgelöscht",
            "fr": "{0} est un répertoire ; avec -r, il est supprimé aussi",
            "ja": "{0}はディレクトリです; -rを指定すると削除されます",
        },
    ),
    "what the system refuses": (
        ["cp", "{0}/none", "{0}/new"],
        {
            "en": "The file {0}/none could not be opened: No such file or directory",
            "de": "Die Datei {0}/none konnte nicht geöffnet werden: Datei oder Verzeichnis nicht gefunden",
            "fr": "Le fichier {0}/none n'a pas pu être ouvert : Fichier ou répertoire inexistant",
            "ja": "ファイル{0}/noneをオープンできませんでした: そのようなファイルまたはディレクトリはありません",
        },
    ),
    "the help of a command": (
        ["help", "mkdir"],
        {
            "en": "-p  with its missing parents",
            "de": "-p  mit den fehlenden übergeordneten Verzeichnissen",
            "fr": "-p  avec ses répertoires parents manquants",
            "ja": "-p  存在しない親ディレクトリも作成する",
        },
    ),
}


def told(client, language, words):
    """The lines beside the output, at a terminal whose locale need not be installed."""
    shown = Terminal(client).run(*words, env={"LC_ALL": f"{language}_XX.UTF-8"})
    # The screen has a blank behind a character that is two columns wide.
    return [re.sub(r"([\u1100-\uffff]) ", r"\1", line.removeprefix("tslwnfs: ")) for line in shown.said]


@pytest.mark.parametrize("language", LANGUAGES)
@pytest.mark.parametrize("typed", READ)
def test_what_a_person_reads_at_a_terminal_is_in_the_language_too(local, folder, typed, language):
    words, read = READ[typed]
    assert read[language].format(folder) in told(local, language, [word.format(folder) for word in words])


@pytest.mark.parametrize("language", LANGUAGES)
def test_a_servers_reason_is_in_the_language_with_what_to_try(faulty, language):
    server = faulty()
    server.fault("status=REMOVE:ACCES:*")
    (server.files / "f").write_bytes(b"x")
    line = told(server.client, language, ["rm", f"{server.remote}/f"])[0]
    assert line.startswith(server.remote) and "REMOVE" in line and "(NFS3ERR_ACCES)" in line
    expected = {
        "en": ["server ", "permission denied", "the user and group that count are the caller's"],
        "de": ["Server ", "Zugriff verweigert", "es zählen Benutzer und Gruppe des Aufrufers"],
        "fr": ["serveur ", "permission refusée", "ceux de l'appelant"],
        "ja": ["サーバー", "アクセスが拒否されました", "呼出し元のユーザーとグループ"],
    }
    assert all(part in line for part in expected[language])


def test_the_trace_stays_english(local, folder, tmp_path):
    trace = tmp_path / "t"
    local.run("-trace", trace, "-level", "0", "0", "0", "1", "rm", f"{folder}/.", env={"LC_ALL": "de_DE.UTF-8"})
    assert f"{folder}/. is never deleted" in trace.read_text()


def test_reasons_that_the_terminals_characters_do_not_hold_are_english(local, folder):
    run = local.run("rm", folder, env={"LC_ALL": "ja_JP.ISO-8859-1", "TSLWNFS_TERMINAL": "reasons"})
    assert run.err.decode().splitlines()[0] == f"tslwnfs: {folder} is a directory; with -r it is deleted, too"
