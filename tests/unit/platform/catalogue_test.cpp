// SPDX-License-Identifier: Apache-2.0
#include "platform/catalogue.h"

#include <gmock/gmock.h>
#include <nl_types.h>
#include <sys/stat.h>

#include <cstring>
#include <random>

#include "tests/support/scoped_environment.h"
#include "tests/support/temporary_directory.h"

using testing::ElementsAre;
using testing::IsSupersetOf;
using testing::Optional;

namespace {

constexpr int kSucceeded = 65023;
constexpr char kSucceededText[] = "The command completed successfully.";

std::optional<std::string> read_catalogue_text(const std::string &path, int number) {
    const auto catalogue = CompiledCatalogue::read(path);
    if (!catalogue) return std::nullopt;
    return catalogue->text(number);
}

class Catalogue : public testing::Test {
  protected:
    // Puts a catalogue where a home has it for a locale.
    void install(const std::string &locale, const std::string &bytes = read_file(BUILT_CATALOGUE)) {
        const std::string folder = directory_ / "rdbms/mesg/" + locale;
        std::filesystem::create_directories(folder);
        write_file(folder + "/tslwnfs.cat", bytes);
    }

    std::string damaged(const std::string &bytes) {
        write_file(directory_ / "damaged.cat", bytes);
        return directory_ / "damaged.cat";
    }

    TemporaryDirectory directory_;
    ScopedEnvironment home_{"TESSEL_HOME", directory_.path().c_str()};
    ScopedEnvironment path_{"NLSPATH", nullptr};
    ScopedEnvironment all_{"LC_ALL", nullptr};
    ScopedEnvironment messages_{"LC_MESSAGES", nullptr};
    ScopedEnvironment lang_{"LANG", "de_AT.UTF-8"};
};

TEST_F(Catalogue, TriesTheWholeLocaleThenItsPartsThenEnglish) {
    const std::string mesg = directory_ / "rdbms/mesg/";
    auto candidates = catalogue_candidates("tslwnfs");
    candidates.resize(4);
    EXPECT_THAT(candidates, ElementsAre(mesg + "de_AT.UTF-8/tslwnfs.cat", mesg + "de_AT/tslwnfs.cat",
                                        mesg + "de/tslwnfs.cat", mesg + "en/tslwnfs.cat"));
}

TEST_F(Catalogue, LooksUnderTheHomeTheProgramStandsInAfterTesselHome) {
    const auto candidates = catalogue_candidates("tslwnfs");
    ASSERT_EQ(candidates.size(), 8u);
    EXPECT_FALSE(candidates[7].starts_with(directory_.path()));
    EXPECT_TRUE(candidates[7].ends_with("/rdbms/mesg/en/tslwnfs.cat"));
}

TEST_F(Catalogue, PutsNlspathInFrontWithItsMarkersReplaced) {
    const ScopedEnvironment path("NLSPATH", "/a/%L/%N.cat:/b/%l_%t.%c%%:%N:");
    auto candidates = catalogue_candidates("tslwnfs");
    candidates.resize(4);
    EXPECT_THAT(candidates, ElementsAre("/a/de_AT.UTF-8/tslwnfs.cat", "/b/de_AT.UTF-8%", "./tslwnfs", "./tslwnfs"));
}

TEST_F(Catalogue, TakesTheLocaleFromTheFirstVariableThatIsSet) {
    const ScopedEnvironment messages("LC_MESSAGES", "fr");
    EXPECT_THAT(catalogue_candidates("x"), IsSupersetOf({directory_ / "rdbms/mesg/fr/x.cat"}));
    const ScopedEnvironment all("LC_ALL", "it");
    EXPECT_THAT(catalogue_candidates("x"), IsSupersetOf({directory_ / "rdbms/mesg/it/x.cat"}));
}

TEST_F(Catalogue, NeverFollowsALocaleOutOfTheMessageFolder) {
    for (const char *locale : {"../../etc", "..", "/etc"}) {
        const ScopedEnvironment lang("LANG", locale);
        EXPECT_EQ(catalogue_candidates("x").front(), directory_ / "rdbms/mesg/en/x.cat") << locale;
    }
}

TEST_F(Catalogue, FallsBackToEnglish) {
    install("en");
    MessageCatalogue catalogue("tslwnfs");
    ASSERT_NE(catalogue.text(kSucceeded), nullptr);
    EXPECT_EQ(*catalogue.text(kSucceeded), kSucceededText);
}

TEST_F(Catalogue, GivesAnEmptyTextForANumberItDoesNotHold) {
    install("en");
    MessageCatalogue catalogue("tslwnfs");
    ASSERT_NE(catalogue.text(64999), nullptr);
    EXPECT_EQ(*catalogue.text(64999), "");
}

TEST_F(Catalogue, GivesNothingWhenThereIsNoFile) {
    MessageCatalogue catalogue("tslwnfs");
    EXPECT_EQ(catalogue.text(kSucceeded), nullptr);
}

TEST_F(Catalogue, IsReadAgainAfterForget) {
    install("en");
    MessageCatalogue catalogue("tslwnfs");
    ASSERT_NE(catalogue.text(kSucceeded), nullptr);
    std::filesystem::remove_all(directory_ / "rdbms");
    EXPECT_NE(catalogue.text(kSucceeded), nullptr);
    catalogue.forget();
    EXPECT_EQ(catalogue.text(kSucceeded), nullptr);
}

TEST_F(Catalogue, IsReadOnceForAllItsTexts) {
    install("en");
    MessageCatalogue catalogue("tslwnfs");
    ASSERT_NE(catalogue.text(kSucceeded), nullptr);
    std::filesystem::remove_all(directory_ / "rdbms");
    ASSERT_NE(catalogue.text(64999), nullptr);
    EXPECT_EQ(*catalogue.text(64999), "");
}

TEST_F(Catalogue, IsLookedForAgainWhileThereIsNone) {
    MessageCatalogue catalogue("tslwnfs");
    EXPECT_EQ(catalogue.text(kSucceeded), nullptr);
    install("en");
    EXPECT_NE(catalogue.text(kSucceeded), nullptr);
}

TEST_F(Catalogue, PassesOverADamagedFileToTheNextCandidate) {
    install("de", "rubbish");
    install("en");
    MessageCatalogue catalogue("tslwnfs");
    ASSERT_NE(catalogue.text(kSucceeded), nullptr);
    EXPECT_EQ(*catalogue.text(kSucceeded), kSucceededText);
}

TEST_F(Catalogue, IsNeverADirectoryOrAPipe) {
    EXPECT_EQ(read_catalogue_text(directory_.path(), kSucceeded), std::nullopt);
    ASSERT_EQ(mkfifo((directory_ / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(read_catalogue_text(directory_ / "pipe", kSucceeded), std::nullopt);
}

TEST_F(Catalogue, GivesWhatTheCLibraryWouldGive) {
    const nl_catd opened = catopen(BUILT_CATALOGUE, NL_CAT_LOCALE);
    ASSERT_NE(opened, nl_catd(-1));
    int texts = 0;
    for (int number = 64990; number < 65090; ++number) {
        const std::string expected = catgets(opened, 1, number, "");
        EXPECT_THAT(read_catalogue_text(BUILT_CATALOGUE, number), Optional(expected)) << number;
        texts += expected.empty() ? 0 : 1;
    }
    EXPECT_GT(texts, 60);
    EXPECT_EQ(catclose(opened), 0);
}

TEST_F(Catalogue, SurvivesEveryTruncation) {
    const std::string whole = read_file(BUILT_CATALOGUE);
    ASSERT_THAT(read_catalogue_text(damaged(whole), kSucceeded), Optional(std::string(kSucceededText)));
    for (std::size_t length = 0; length < whole.size(); length += length < 64 ? 1 : 17) {
        const auto text = read_catalogue_text(damaged(whole.substr(0, length)), kSucceeded);
        EXPECT_LE(text.value_or("").size(), whole.size()) << "cut at " << length;
    }
}

TEST_F(Catalogue, SurvivesEveryFlippedBitOfItsHeader) {
    const std::string whole = read_file(BUILT_CATALOGUE);
    for (std::size_t bit = 0; bit < 12 * 8; ++bit) {
        std::string bytes = whole;
        bytes[bit / 8] = static_cast<char>(bytes[bit / 8] ^ (1 << bit % 8));
        const auto text = read_catalogue_text(damaged(bytes), kSucceeded);
        EXPECT_LE(text.value_or("").size(), whole.size()) << "bit " << bit;
    }
}

TEST_F(Catalogue, SurvivesRandomDamage) {
    const std::string whole = read_file(BUILT_CATALOGUE);
    std::mt19937 random(20260101);
    for (int round = 0; round < 1500; ++round) {
        std::string bytes = whole;
        for (int flips = 1 + round % 4; flips > 0; --flips)
            bytes[random() % bytes.size()] = static_cast<char>(random());
        const auto text = read_catalogue_text(damaged(bytes), 65000 + static_cast<int>(random() % 73));
        EXPECT_LE(text.value_or("").size(), whole.size()) << "round " << round;
    }
}

TEST_F(Catalogue, WithATableThatOverflowsItsSizeIsRefused) {
    const std::string whole = read_file(BUILT_CATALOGUE);
    for (const uint32_t width : {0u, 0x10000u, 0x40000000u, 0xFFFFFFFFu}) {
        for (const uint32_t depth : {0u, 0x10000u, 0x55555556u, 0xFFFFFFFFu}) {
            std::string bytes = whole;
            std::memcpy(bytes.data() + 4, &width, sizeof width);
            std::memcpy(bytes.data() + 8, &depth, sizeof depth);
            EXPECT_EQ(read_catalogue_text(damaged(bytes), kSucceeded), std::nullopt) << width << " x " << depth;
        }
    }
}

}  // namespace
