// SPDX-License-Identifier: Apache-2.0
#include "platform/codeset.h"

#include <gmock/gmock.h>

using testing::Eq;
using testing::Optional;

namespace {

const std::string kUmlaut = "\xC3\xA4";          // a with two dots
const std::string kKana = "\xE3\x82\xA2";        // katakana a
const std::string kBroken = "\xC3(\xE3\x82 ok";  // cut characters

TEST(Codeset, OfTheLocaleHasItsOwnBytesForAText) {
    EXPECT_THAT(text_in_codeset(kUmlaut, "ISO-8859-1"), Optional(Eq("\xE4")));
    EXPECT_THAT(text_in_codeset(kUmlaut, "iso88591"), Optional(Eq("\xE4")));
    EXPECT_THAT(text_in_codeset(kKana, "eucJP"), Optional(Eq("\xA5\xA2")));
    EXPECT_THAT(text_in_codeset(kKana, "SJIS"), Optional(Eq("\x83\x41")));
}

TEST(Codeset, ThatIsUtf8OrNoneLeavesTheTextAlone) {
    for (const char *codeset : {"", "UTF-8", "utf8"})
        EXPECT_THAT(text_in_codeset(kUmlaut + kKana, codeset), Optional(kUmlaut + kKana)) << codeset;
}

TEST(Codeset, IsNotAskedForAnAsciiText) {
    for (const char *codeset : {"ISO-8859-1", "no-such-codeset"})
        EXPECT_THAT(text_in_codeset("plain", codeset), Optional(Eq("plain"))) << codeset;
}

TEST(Codeset, ThatIsUnknownOrLacksACharacterGivesNothing) {
    EXPECT_EQ(text_in_codeset(kKana, "ISO-8859-1"), std::nullopt);
    EXPECT_EQ(text_in_codeset(kUmlaut, "no-such-codeset"), std::nullopt);
}

TEST(Codeset, OfATextThatIsNoUtf8IsTheWritersOwnChoice) {
    EXPECT_THAT(text_in_codeset(kBroken, "ISO-8859-1"), Optional(kBroken));
    EXPECT_THAT(text_in_codeset("\xE4", "ISO-8859-1"), Optional(Eq("\xE4")));
}

TEST(Codeset, HasRoomForEveryCharacterOfTheWidestEncoding) {
    std::string text;
    for (int i = 0; i < 1000; ++i)
        text += kUmlaut + "a";
    const auto wide = text_in_codeset(text, "UTF-32LE");
    ASSERT_TRUE(wide.has_value());
    EXPECT_EQ(wide->size(), 8000u);
}

}  // namespace
