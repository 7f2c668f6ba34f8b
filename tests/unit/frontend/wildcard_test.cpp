// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/wildcard.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

namespace {

// The definition, without regard to time.
bool matches(const char *pattern, const char *name) {
    if (*pattern == '\0') return *name == '\0';
    if (*pattern == '*') return matches(pattern + 1, name) || (*name != '\0' && matches(pattern, name + 1));
    return *name != '\0' && (*pattern == '?' || *pattern == *name) && matches(pattern + 1, name + 1);
}

std::string built(const char *pattern, const char *name) {
    char out[513] = {};
    EXPECT_EQ(strwildmatch(pattern, name, out, sizeof out), 1);
    return out;
}

TEST(WildcardMatch, DecidesTheSmallCases) {
    struct Case {
        const char *pattern, *name;
        int result;
    };
    for (const Case &one : {Case{"*", "", 1},
                            {"", "", 1},
                            {"a", "", 0},
                            {"a*", "a", 1},
                            {"*a", "ba", 1},
                            {"?", "ab", 0},
                            {"A*", "abc", 0},
                            {"*?", "a", 1},
                            {"?*", "", 0},
                            {"a*b*c", "abcb", 0},
                            {"*aab", "aaab", 1},
                            {"***", "", 1},
                            {"", "a", 0},
                            {"**a", "xa", 1},
                            {"ab", "abc", 0},
                            {"abc", "ab", 0},
                            {"a*b*c", "a12b3bc", 1}}) {
        EXPECT_EQ(strwildcmp(one.pattern, one.name), one.result) << one.pattern << " against " << one.name;
    }
}

TEST(WildcardMatch, AgreesWithItsDefinitionOnRandomTexts) {
    std::mt19937 random(7);
    const auto text = [&](const std::string &letters) {
        std::string result;
        for (auto length = random() % 9; length > 0; --length)
            result += letters[random() % letters.size()];
        return result;
    };
    for (int round = 0; round < 50000; ++round) {
        const std::string pattern = text("ab*?"), name = text("ab");
        ASSERT_EQ(strwildcmp(pattern.c_str(), name.c_str()) == 1, matches(pattern.c_str(), name.c_str()))
            << pattern << " against " << name;
    }
}

TEST(WildcardMatch, IsQuickOnManyStars) {
    std::string pattern;
    for (int i = 0; i < 80; ++i)
        pattern += "*a";
    EXPECT_EQ(strwildcmp((pattern + "b").c_str(), std::string(259, 'a').c_str()), 0);
}

TEST(WildcardName, AppliesThePatternToTheName) {
    struct Case {
        const char *pattern, *name, *result;
    };
    for (const Case &one : {Case{"*.bak", "file.txt", "file.bak"},
                            {"a?c", "xyz", "ayc"},
                            {"*", "file.txt", "file.txt"},
                            {"new", "whatever", "new"},
                            {"new", "", "new"},
                            {"x*", "", "x"},
                            {"*", "", ""},
                            {"x*y?z", "", "xyz"}}) {
        EXPECT_EQ(built(one.pattern, one.name), one.result) << one.pattern << " on " << one.name;
    }
}

TEST(WildcardName, KeepsTheRestOfALongerName) {
    EXPECT_EQ(built("*.bak", "file.html"), "file.bakl");
    EXPECT_EQ(built("*.bak", "x.jpeg"), "x.bakg");
    EXPECT_EQ(built("*.bak", "a.b.txt"), "a.bakxt");
    EXPECT_EQ(built("*.bak", "noext"), "noext.bak");
}

TEST(WildcardName, LetsLiteralsOverwriteTheName) {
    EXPECT_EQ(built("x*", "abc"), "xbc");
    EXPECT_EQ(built("new*.bak", "file.txt"), "newe.bak");
    EXPECT_EQ(built("*x", "abc"), "abcx");
    EXPECT_EQ(built("a?c", "x"), "ac");
    EXPECT_EQ(built("???", "ab"), "ab");
}

TEST(WildcardName, StopsAtTheEndOfAPatternWithoutAStar) {
    EXPECT_EQ(built("a?", "wxyz"), "ax");
    EXPECT_EQ(built("?", "xy"), "x");
}

TEST(WildcardName, NeverWritesBehindItsBuffer) {
    char out[8] = "";
    EXPECT_EQ(strwildmatch("*", "0123456789", out, sizeof out), 1);
    EXPECT_STREQ(out, "0123456");
    std::mt19937 random(11);
    for (int round = 0; round < 20000; ++round) {
        std::string pattern, name;
        for (auto length = random() % 12; length > 0; --length)
            pattern += "a.*?"[random() % 4];
        for (auto length = random() % 12; length > 0; --length)
            name += "a.b"[random() % 3];
        char small[5] = {'\0', '\0', '\0', '\0', '#'};
        strwildmatch(pattern.c_str(), name.c_str(), small, 4);
        ASSERT_EQ(small[4], '#');
        ASSERT_EQ(small[3], '\0');
        EXPECT_TRUE(built(pattern.c_str(), name.c_str()).starts_with(small)) << pattern << " on " << name;
    }
}

TEST(ToLower, WorksInPlaceAndReturnsItsText) {
    char text[] = "ABC.Txt";
    EXPECT_EQ(tolower_string(text), text);
    EXPECT_STREQ(text, "abc.txt");
}

TEST(ToLower, LeavesBytesOutsideTheLocalesLettersAlone) {
    char text[] = "\xC3\x84Z\xFF";
    EXPECT_STREQ(tolower_string(text), "\xC3\x84z\xFF");
}

}  // namespace
