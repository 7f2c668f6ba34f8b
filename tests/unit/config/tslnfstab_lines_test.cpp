// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/tslnfstab_lines.h"

#include <gmock/gmock.h>

#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::string key_of(std::string_view line) {
    const auto setting = parse_setting(line);
    return setting ? std::string(setting->key) : "nothing";
}

std::string value_of(std::string_view line) {
    const auto setting = parse_setting(line);
    return setting ? std::string(setting->value) : "nothing";
}

TEST(Lines, KeepTheirLineFeedsWhichTheLastOneMayLack) {
    EXPECT_THAT(split_lines("a\n\nb"), ElementsAre("a\n", "\n", "b"));
    EXPECT_THAT(split_lines("a\n"), ElementsAre("a\n"));
    EXPECT_THAT(split_lines(""), IsEmpty());
}

TEST(Lines, OfMoreThan1023CharactersCountAsSeveral) {
    const std::string longest(1022, 'x'), exact(1023, 'x');
    EXPECT_THAT(split_lines(longest + "\nb\n"), ElementsAre(longest + "\n", "b\n"));
    EXPECT_THAT(split_lines(exact + "\nb\n"), ElementsAre(exact, "\n", "b\n"));
    EXPECT_THAT(split_lines(exact + "y\n"), ElementsAre(exact, "y\n"));
    EXPECT_THAT(split_lines(exact + exact), ElementsAre(exact, exact));
}

TEST(Lines, MayHoldAnyByte) {
    const std::string odd("a\0\xFF\r\nb", 6);
    EXPECT_THAT(split_lines(odd), ElementsAre(std::string("a\0\xFF\r\n", 5), "b"));
}

TEST(Markers, AreRecognisedWithAndWithoutALineFeed) {
    EXPECT_TRUE(is_block_begin("#<server block begin>\n"));
    EXPECT_TRUE(is_block_begin("#<server block begin>"));
    EXPECT_TRUE(is_block_end("#<server block end>\n"));
    EXPECT_FALSE(is_block_begin("#<server block end>\n"));
    EXPECT_FALSE(is_block_end("#<server block begin>\n"));
}

TEST(Markers, TakeNothingAroundThemAndNoOtherCase) {
    for (const char *line : {" #<server block begin>\n", "#<server block begin> \n", "#<server block begin>\r\n",
                             "#<Server block begin>\n", "#<server  block begin>\n", "#<server block begin>\n\n"}) {
        EXPECT_FALSE(is_block_begin(line)) << line;
    }
}

TEST(Settings, AreAKeyAndTheWordBehindTheColon) {
    EXPECT_EQ(key_of("server: a b\n"), "server");
    EXPECT_EQ(value_of("server: a b\n"), "a");
    EXPECT_EQ(value_of("server:a"), "a");
    EXPECT_EQ(value_of("server:    a\n"), "a");
    EXPECT_EQ(value_of("path: host:port\n"), "host:port");
}

TEST(Settings, MayBeIndentedByBlanksAndTabs) {
    EXPECT_EQ(key_of(" \t server: a\n"), "server");
    EXPECT_EQ(value_of(" \t server: a\n"), "a");
}

TEST(Settings, EndTheirValueAtACommentWithoutABlank) {
    EXPECT_EQ(value_of("server: a#b\n"), "a");
    EXPECT_EQ(value_of("server:#a\n"), "");
    EXPECT_EQ(value_of("server: # note\n"), "");
}

TEST(Settings, TakeATabForPartOfTheValue) {
    EXPECT_EQ(value_of("server:\ta\n"), "\ta");
    EXPECT_EQ(value_of("server: a\tb\n"), "a\tb");
}

TEST(Settings, OfALocalPathLineAreTheFirstItemAlone) {
    EXPECT_EQ(key_of("local: 10.0.0.1 \t path: 10.0.0.2\n"), "local");
    EXPECT_EQ(value_of("local: 10.0.0.1 \t path: 10.0.0.2\n"), "10.0.0.1");
}

TEST(Settings, MayHaveNoValue) {
    for (const char *line : {"server", "server foo\n", "server:", "server: \n", "server:   "}) {
        EXPECT_EQ(value_of(line), "") << line;
    }
}

TEST(Settings, AreNotInBlankLinesCommentsAndLinesWithoutAKey) {
    for (const char *line : {"", "\n", "  \t \n", "# server: a\n", "  #server: a", ": a\n", " :\n"}) {
        EXPECT_EQ(key_of(line), "nothing") << line;
    }
}

TEST(Settings, MatchKeysByPrefixAndCase) {
    EXPECT_TRUE(parse_setting("server: a")->is_server());
    EXPECT_TRUE(parse_setting("serverx: a")->is_server("a"));
    EXPECT_FALSE(parse_setting("SERVER: a")->is_server());
    EXPECT_FALSE(parse_setting("serve: a")->is_server());
    EXPECT_TRUE(parse_setting("rdmaportal: 1")->is_rdmaport());
    EXPECT_FALSE(parse_setting("rdmapor: 1")->is_rdmaport());
}

TEST(Settings, CompareNamesWholeAndByCase) {
    EXPECT_TRUE(parse_setting("server: abc")->is_server("abc"));
    EXPECT_FALSE(parse_setting("server: abc")->is_server("ab"));
    EXPECT_FALSE(parse_setting("server: abc")->is_server("abcd"));
    EXPECT_FALSE(parse_setting("server: abc")->is_server("ABC"));
    EXPECT_FALSE(parse_setting("server:")->is_server(""));
}

TEST(LineContent, IsWhatCarriesSomethingWithoutItsIndentation) {
    EXPECT_EQ(line_content(" \t a b \t\n"), "a b \t");
    EXPECT_EQ(line_content("\t# comment\n"), "");
    EXPECT_EQ(line_content(" \t\n"), "");
}

}  // namespace
