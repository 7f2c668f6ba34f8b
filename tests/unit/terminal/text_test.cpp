// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/text.h"

#include <gtest/gtest.h>

#include <clocale>

namespace terminal {
namespace {

class Text : public testing::Test {
  protected:
    Text() { EXPECT_NE(std::setlocale(LC_ALL, "C.UTF-8"), nullptr); }
    ~Text() override { std::setlocale(LC_ALL, "C"); }
};

TEST_F(Text, ShowsNothingThatATerminalWouldObey) {
    EXPECT_EQ(printable("plain name"), "plain name");
    EXPECT_EQ(printable("a\33[2Jb\r\n\7c\177"), "a?[2Jb???c?");
    EXPECT_EQ(printable("\xc2\x9b"
                        "31m"),
              "?31m");  // the one-character control sequence introducer
}

TEST_F(Text, KeepsWhatTheLocalePrintsAndReplacesWhatIsNoCharacter) {
    EXPECT_EQ(printable("Gr\xc3\xb6\xc3\x9f"
                        "e \xe8\xa1\xa8"),
              "Gr\xc3\xb6\xc3\x9f"
              "e \xe8\xa1\xa8");
    EXPECT_EQ(printable("a\xff"
                        "b\xc3"),
              "a?b?");
}

TEST_F(Text, CountsColumnsNotBytes) {
    EXPECT_EQ(columns_of(""), 0U);
    EXPECT_EQ(columns_of("Gr\xc3\xb6\xc3\x9f"
                         "e"),
              5U);
    EXPECT_EQ(columns_of("\xe8\xa1\xa8"), 2U);
}

TEST_F(Text, CutsANameAtItsBeginning) {
    EXPECT_EQ(fitted("/wnfs/data/file", 15), "/wnfs/data/file");
    EXPECT_EQ(fitted("/wnfs/data/file", 14), "...s/data/file");
    EXPECT_EQ(fitted("/wnfs/data/file", 4), "...e");
    EXPECT_EQ(fitted("/wnfs/data/file", 3), "...");
    EXPECT_EQ(fitted("/wnfs/data/file", 0), "");
    // A character of two columns is not cut in half.
    EXPECT_EQ(fitted("ab\xe8\xa1\xa8\xe8\xa1\xa8", 5), "...\xe8\xa1\xa8");
    EXPECT_EQ(fitted("ab\xe8\xa1\xa8\xe8\xa1\xa8", 4), "...");
}

TEST_F(Text, TellsBytesInTheUnitThatFits) {
    EXPECT_EQ(bytes_text(0), "0 B");
    EXPECT_EQ(bytes_text(1023), "1023 B");
    EXPECT_EQ(bytes_text(1024), "1.0 KiB");
    EXPECT_EQ(bytes_text(1536 * 1024), "1.5 MiB");
    EXPECT_EQ(bytes_text(uint64_t{999} << 20), "999 MiB");
    EXPECT_EQ(bytes_text((uint64_t{1} << 30) - 1), "1.0 GiB");
    EXPECT_EQ(bytes_text(99'900'000), "95.3 MiB");
    EXPECT_EQ(bytes_text(UINT64_MAX), "16.0 EiB");
}

}  // namespace
}  // namespace terminal
