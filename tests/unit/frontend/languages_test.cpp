// SPDX-License-Identifier: Apache-2.0
// What holds for the catalogue of every language. The languages are those that have a source.
#include <algorithm>
#include <filesystem>
#include <optional>
#include <regex>
#include <string>

#include "front_end_fixture.h"
#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/output/messages.h"

namespace {

std::vector<std::string> languages() {
    const std::regex source(R"(tslwnfs\.(.*)\.msg)");
    std::vector<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator(CATALOGUE_SOURCES)) {
        const std::string name = entry.path().filename();
        std::smatch match;
        if (std::regex_match(name, match, source)) found.push_back(match[1]);
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::string text_in(const std::string &language, int number) {
    const auto catalogue = CompiledCatalogue::read(BUILT_CATALOGUES "/" + language + "/tslwnfs.cat");
    return catalogue ? catalogue->text(number) : "";
}

bool is_usage_line(int number) {
    return number >= 65051 && number <= 65058;
}

// The conversions of a text in their order, such as "%s %u".
std::string conversions_of(const std::string &text) {
    const std::regex conversion("%(lu|.)");
    std::string found;
    for (std::sregex_iterator one(text.begin(), text.end(), conversion), end; one != end; ++one)
        found += one->str() + " ";
    return found;
}

// True when the bytes are characters of UTF-8, none cut and none of them a control character but a final line feed.
bool is_plain_utf8(const std::string &text) {
    static const std::regex characters(
        "([ -~]|[\xC2-\xDF][\x80-\xBF]|[\xE0-\xEF][\x80-\xBF]{2}|[\xF0-\xF4][\x80-\xBF]{3})*\n?");
    return std::regex_match(text, characters);
}

class EveryLanguage : public testing::TestWithParam<std::string> {
  protected:
    std::string text(int number) const { return text_in(GetParam(), number); }
    std::string text(const MessageShape &shape) const { return text(static_cast<int>(shape.number)); }
};

INSTANTIATE_TEST_SUITE_P(Catalogue, EveryLanguage, testing::ValuesIn(languages()),
                         [](const auto &language) { return language.param; });

TEST_P(EveryLanguage, HasATextForEveryMessageThatFitsItsArgumentsAndItsBuffer) {
    for (const MessageShape &shape : message_shapes()) {
        const std::string text = this->text(shape);
        EXPECT_FALSE(text.empty()) << static_cast<int>(shape.number);
        EXPECT_LT(text.size(), 480u) << text;
        EXPECT_TRUE(text_fits(text, shape.arguments)) << text;
    }
}

TEST_P(EveryLanguage, HasNoTextThatNobodyUses) {
    const auto shapes = message_shapes();
    for (int number = 64900; number < 65200; ++number) {
        const bool used = std::any_of(shapes.begin(), shapes.end(), [&](const MessageShape &shape) {
            return static_cast<int>(shape.number) == number;
        });
        EXPECT_EQ(text(number).empty(), !used) << number;
    }
}

TEST_P(EveryLanguage, ShowsWhatEnglishShowsInTheSameOrder) {
    for (const MessageShape &shape : message_shapes()) {
        const int number = static_cast<int>(shape.number);
        EXPECT_EQ(conversions_of(text(number)), conversions_of(text_in("en", number))) << text(number);
    }
}

TEST_P(EveryLanguage, HasWordsOfItsOwnForEveryMessage) {
    if (GetParam() == "en") return;
    for (const MessageShape &shape : message_shapes()) {
        EXPECT_NE(text(shape), text_in("en", static_cast<int>(shape.number)));
    }
}

TEST_P(EveryLanguage, IsWrittenInUtf8WithLineEndsBehindUsageLinesOnly) {
    for (const MessageShape &shape : message_shapes()) {
        const std::string text = this->text(shape);
        EXPECT_TRUE(is_plain_utf8(text)) << text;
        EXPECT_EQ(text.ends_with('\n'), is_usage_line(static_cast<int>(shape.number))) << text;
    }
}

TEST_P(EveryLanguage, NamesEveryCommandInItsUsageLines) {
    std::string usage;
    for (int number = 65051; number <= 65058; ++number)
        usage += " " + text(number);
    std::replace_if(
        usage.begin(), usage.end(), [](char c) { return c == '|' || c == ';' || c == '\n'; }, ' ');
    for (const Command &command : command_table()) {
        // "DD" is another spelling of dd, and "?" and "h" are of help.
        const std::string_view word = command.code == kNoCommand && !command.words[1] ? "nfsids"
                                      : command.code == kNoCommand                    ? "help"
                                      : command.words[0] != nullptr                   ? command.words[0]
                                                                                      : "";
        if (word.empty()) continue;
        EXPECT_NE(usage.find(" " + std::string(word) + " "), std::string::npos) << word;
    }
}

TEST_P(EveryLanguage, OffersTheOptionsThatTheEnglishUsageOffers) {
    const std::regex option(R"(\[?-[A-Za-z0-9]+)");
    for (int number = 65051; number <= 65058; ++number) {
        const auto options = [&](const std::string &usage) {
            return std::vector<std::string>(std::sregex_token_iterator(usage.begin(), usage.end(), option), {});
        };
        EXPECT_EQ(options(text(number)), options(text_in("en", number)));
    }
}

TEST(Languages, AreEnglishAndAtLeastThreeOthers) {
    EXPECT_THAT(languages(), testing::IsSupersetOf({"de", "en", "fr", "ja"}));
}

}  // namespace
