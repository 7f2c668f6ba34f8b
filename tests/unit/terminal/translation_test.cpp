// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/translation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <regex>
#include <set>
#include <string>

#include "tests/support/scoped_environment.h"
#include "tslwnfs/terminal/progress.h"
#include "tslwnfs/terminal/text.h"

namespace terminal {
namespace {

const std::string kLanguages[] = {"de", "fr", "ja"};

// The locale of messages and that of characters, as they were before at the end.
class Translated : public testing::Test {
  protected:
    Translated() : language_("LC_ALL", "de_DE.UTF-8") { std::setlocale(LC_CTYPE, "C.UTF-8"); }
    ~Translated() override { std::setlocale(LC_CTYPE, "C"); }
    Translated(const Translated &) = delete;
    Translated &operator=(const Translated &) = delete;

  private:
    ScopedEnvironment language_;
};

TEST_F(Translated, IsALineThatIsInTheTable) {
    EXPECT_EQ(translated("-s SERVER is missing"), "-s SERVER fehlt");
}

TEST_F(Translated, IsEveryPartOfALineThatWasPutTogether) {
    EXPECT_EQ(translated("warning: /mnt/logs/new: server nas1: MKDIR: the export is read-only (NFS3ERR_ROFS)"),
              "Warnung: /mnt/logs/new: Server nas1: MKDIR: der Export ist schreibgeschützt (NFS3ERR_ROFS)");
    EXPECT_EQ(translated("cpoy is no command; did you mean copy?"), "cpoy ist kein Befehl; war copy gemeint?");
}

TEST_F(Translated, PutsItsPartsInTheOrderOfTheLanguage) {
    const ScopedEnvironment japanese("LC_ALL", "ja_JP.UTF-8");
    EXPECT_EQ(translated("warning: 2 of 31 files were not copied: a, b"),
              "警告: 31個中2個のファイルがコピーされませんでした: a, b");
}

TEST_F(Translated, LeavesNamesAsTheyAre) {
    EXPECT_EQ(translated("server nas1 ok again is a directory"), "server nas1 ok again ist ein Verzeichnis");
    EXPECT_EQ(translated("/a (b): no such file or directory (NFS3ERR_NOENT)"),
              "/a (b): Datei oder Verzeichnis nicht vorhanden (NFS3ERR_NOENT)");
    EXPECT_EQ(translated("{1} is no command"), "{1} ist kein Befehl");
}

TEST_F(Translated, LeavesALineOfTheCatalogueAsItIs) {
    const ScopedEnvironment french("LC_ALL", "fr_FR.UTF-8");
    EXPECT_EQ(translated("rien n'a été traité ; vérifiez TESSEL_HOME"), "rien n'a été traité ; vérifiez TESSEL_HOME");
    EXPECT_EQ(translated("avertissement : le lien /a"), "avertissement : le lien /a");
}

TEST_F(Translated, StaysAsItIsWhereNobodyKnowsTheLine) {
    EXPECT_EQ(translated("something else altogether"), "something else altogether");
    EXPECT_EQ(translated("/a: something else: permission denied"), "/a: something else: Zugriff verweigert");
    EXPECT_EQ(translated(""), "");
}

// Some would be tried for hours by a match that takes every way through them.
TEST_F(Translated, IsFoundSoonOrNotAtAllWhateverANameHolds) {
    constexpr std::size_t kLength = 65536;
    for (const char *piece : {"a: (b; ", "a", "( ", "(", ") (", "x is ", "; ", ": ", " (x)",
                              "warning: ", "server a: ", " is a directory", " and the words behind it were skipped"}) {
        std::string name;
        while (name.size() < kLength)
            name += piece;
        for (const std::string &line :
             {name, "warning: " + name, name + ")", name + " is a directory", name + ": permission denied",
              "interrupted: " + name + " is not complete (1 of 2 MB written)"})
            EXPECT_FALSE(translated(line).empty());
    }
}

TEST_F(Translated, IsALineWithAVeryLongName) {
    const std::string plain = "/mnt/backup/" + std::string(4096, 'x') + " (1) is ok";
    EXPECT_EQ(translated("warning: " + plain + ": server nas1: no such file or directory"),
              "Warnung: " + plain + ": Server nas1: Datei oder Verzeichnis nicht vorhanden");
}

TEST_F(Translated, OfTextsInTextsStopsSomewhere) {
    std::string deep;
    for (int i = 0; i < 1000; ++i)
        deep += "warning: ";
    const auto text = translated(deep + "x");
    EXPECT_TRUE(text.starts_with("Warnung: Warnung: "));
    EXPECT_TRUE(text.ends_with("warning: warning: x"));
}

TEST_F(Translated, StaysEnglishWhereTheLocaleDoesNotKnowTheCharacters) {
    std::setlocale(LC_CTYPE, "C");
    EXPECT_EQ(translated("the name is too long"), "der Name ist zu lang");
    EXPECT_EQ(translated("the export is read-only"), "the export is read-only");
}

TEST_F(Translated, StaysEnglishInEnglishAndInLanguagesWithoutATable) {
    for (const char *locale : {"C", "en_GB.UTF-8", "xx_YY.UTF-8", "../de"}) {
        const ScopedEnvironment other("LC_ALL", locale);
        EXPECT_EQ(translated("-s SERVER is missing"), "-s SERVER is missing") << locale;
        EXPECT_EQ(in_words("{1} of {2}", {"1", "2"}), "1 of 2") << locale;
    }
}

TEST_F(Translated, LeavesPiecesToThoseWhoAskForThem) {
    EXPECT_EQ(translated("1 of 2"), "1 of 2");
    EXPECT_EQ(in_words("{1} of {2}", {"1", "2"}), "1 von 2");
}

TEST_F(Translated, KeepsALineOfProgressWithinTheScreen) {
    for (const auto &language : kLanguages) {
        const ScopedEnvironment other("LC_ALL", language.c_str());
        for (std::size_t columns = 1; columns < 120; ++columns) {
            EXPECT_LE(columns_of(progress_line("/mnt/b/full.dbf", 5000000, 9000000, 100000, columns)), columns);
            EXPECT_LE(columns_of(files_line("/mnt/b", {3, 90, 1000}, std::chrono::seconds(2), columns)), columns);
        }
    }
    const ScopedEnvironment japanese("LC_ALL", "ja");
    EXPECT_EQ(progress_line("f", 1024, 2048, 1024, 80), "f  50 %  2.0 KiB中1.0 KiB  1.0 KiB/s  残り0:01");
}

TEST(Translations, HaveNoRowTwice) {
    for (const auto &language : kLanguages) {
        std::set<std::string_view> seen;
        for (const auto &row : translations(language))
            EXPECT_TRUE(seen.insert(row.english).second) << row.english;
    }
}

TEST(Translations, AreWordsOfTheirLanguage) {
    const std::regex structure(R"([^A-Za-z]*(\{.\}|tslnfstab|export|status|[^A-Za-z])*)");
    for (const auto &language : kLanguages) {
        for (const auto &row : translations(language)) {
            EXPECT_FALSE(row.text.empty());
            const bool says_nothing = std::regex_match(std::string(row.english), structure);
            EXPECT_TRUE(says_nothing || row.text != row.english) << language << ": " << row.english;
        }
    }
}

TEST(Translations, KeepWhatIsTypedAsItStands) {
    const std::regex typed(
        R"(TSLWNFS_[A-Z]+=[a-z]+|-(bs|count|em|exec|follow|ibs|if|level|log|lp|maxdepth|name|obs|of|path|seek|size)\b)"
        R"(|krb5\.conf|KRB5_CLIENT_KTNAME|\bkinit\b|\bklist\b|%[A-Za-z])");
    const auto words = [&](std::string_view text) {
        const std::string all(text);
        return std::multiset<std::string>(std::sregex_token_iterator(all.begin(), all.end(), typed), {});
    };
    for (const auto &language : kLanguages) {
        for (const auto &row : translations(language))
            EXPECT_EQ(words(row.text), words(row.english)) << language << ": " << row.english;
    }
}

}  // namespace
}  // namespace terminal
