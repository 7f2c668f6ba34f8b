"""The locale chooses the language of the messages, and of nothing else."""

import pathlib
import re

import pytest
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
