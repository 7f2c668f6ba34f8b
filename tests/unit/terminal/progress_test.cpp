// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/progress.h"

#include "tests/unit/terminal/open_screen.h"
#include "tslwnfs/terminal/text.h"

namespace terminal {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr uint64_t kMiB = uint64_t{1} << 20;

TEST(ProgressLine, TellsNameShareAmountRateAndTimeLeft) {
    EXPECT_EQ(progress_line("/m/file", 25 * kMiB, 100 * kMiB, 5 * kMiB, 79),
              "/m/file  25 %  25.0 MiB of 100 MiB  5.0 MiB/s  0:15 left");
    EXPECT_EQ(progress_line("/m/file", 1, 100 * kMiB, 0.1, 79),
              "/m/file  0 %  1 B of 100 MiB  0 B/s");  // nobody can tell when
    EXPECT_EQ(progress_line("/m/file", kMiB, 4000 * kMiB, kMiB, 79),
              "/m/file  0 %  1.0 MiB of 3.9 GiB  1.0 MiB/s  1:06:39 left");
    EXPECT_EQ(progress_line("/m/file", 200, 100, 100, 79), "/m/file  100 %  100 B of 100 B  100 B/s  0:00 left");
}

TEST(ProgressLine, OfManyFilesTellsHowManyAreThrough) {
    EXPECT_EQ(files_line("/m/*", {25, 100, 25 * kMiB}, seconds(5), 79),
              "/m/*  25 of 100 files  25.0 MiB  5.0 MiB/s  0:15 left");
    EXPECT_EQ(files_line("/m/*", {25, 100, 0}, seconds(5), 79), "/m/*  25 of 100 files  0:15 left");
    EXPECT_EQ(files_line("/m/*", {0, 100, 0}, seconds(0), 79), "/m/*  0 of 100 files");
    for (std::size_t columns = 0; columns < 80; ++columns)
        EXPECT_LE(columns_of(files_line("/a/directory/*", {25, 100, 25 * kMiB}, seconds(5), columns)), columns);
}

TEST(ProgressLine, TellsLessInLessRoom) {
    const auto line = [](std::size_t columns) {
        return progress_line("/a/directory/file", 25 * kMiB, 100 * kMiB, 5 * kMiB, columns);
    };
    EXPECT_EQ(line(66), "/a/directory/file  25 %  25.0 MiB of 100 MiB  5.0 MiB/s  0:15 left");
    EXPECT_EQ(line(61), "...tory/file  25 %  25.0 MiB of 100 MiB  5.0 MiB/s  0:15 left");
    EXPECT_EQ(line(60), "/a/directory/file  25 %  5.0 MiB/s  0:15 left");
    EXPECT_EQ(line(40), "...tory/file  25 %  5.0 MiB/s  0:15 left");
    EXPECT_EQ(line(39), "/a/directory/file  25 %  0:15 left");
    EXPECT_EQ(line(20), "...ectory/file  25 %");
    EXPECT_EQ(line(9), "...  25 %");
    EXPECT_EQ(line(6), "  25 %");
    EXPECT_EQ(line(5), "");
    for (std::size_t columns = 0; columns < 80; ++columns)
        EXPECT_LE(columns_of(line(columns)), columns);
}

TEST(ProgressLine, TellsAmountAndRateWhereNobodyKnowsTheTotal) {
    EXPECT_EQ(progress_line("/m/file", 25 * kMiB, 0, 5 * kMiB, 79), "/m/file  25.0 MiB  5.0 MiB/s");
    EXPECT_EQ(progress_line("/m/file", 25 * kMiB, 0, 5 * kMiB, 20), "/m/file  25.0 MiB");
    EXPECT_EQ(progress_line("/m/file", 25 * kMiB, 0, 5 * kMiB, 10), "  25.0 MiB");
    EXPECT_EQ(progress_line("/m/file", 25 * kMiB, 0, 5 * kMiB, 9), "");
}

class ProgressTest : public OpenScreen {
  protected:
    Progress::Clock::time_point now_ = Progress::Clock::now();
};

TEST_F(ProgressTest, SaysNothingOfATransferThatIsQuick) {
    EXPECT_EQ(written([&] {
                  Progress progress("f", 100);
                  progress.at(0, now_);
                  progress.at(99, now_ + milliseconds(900));
              }),
              "");
}

TEST_F(ProgressTest, ShowsALineAfterASecondRenewsItAndErasesIt) {
    const std::string shown = written([&] {
        Progress progress("f", 100);
        progress.at(10, now_ + milliseconds(1500));
        progress.at(11, now_ + milliseconds(1600));  // too early to be shown
        progress.at(100, now_ + milliseconds(2000));
    });
    EXPECT_TRUE(shown.starts_with("\rf  10 %  10 B of 100 B  ")) << shown;
    EXPECT_EQ(shown.find("11 %"), std::string::npos) << shown;
    EXPECT_NE(shown.find("\rf  100 %  100 B of 100 B  "), std::string::npos) << shown;
    EXPECT_TRUE(shown.ends_with(" \r")) << shown;
    const std::size_t erased = shown.rfind('\r', shown.size() - 2);
    EXPECT_EQ(shown.find_first_not_of(' ', erased + 1), shown.size() - 1) << shown;
}

TEST_F(ProgressTest, ReckonsWithTheRateOfTheLastSeconds) {
    const std::string shown = written([&] {
        Progress progress("f", 1000 * kMiB);
        for (unsigned second = 1; second <= 10; ++second)
            progress.at(second * 50 * kMiB, now_ + seconds(second));
        for (unsigned second = 11; second <= 20; ++second)
            progress.at((490 + second) * kMiB, now_ + seconds(second));
    });
    EXPECT_NE(shown.find("50.0 MiB/s  0:10 left"), std::string::npos) << shown;
    EXPECT_NE(shown.find("f  51 %  510 MiB of 1000 MiB  1.0 MiB/s  8:10 left"), std::string::npos) << shown;
}

TEST_F(ProgressTest, ReckonsWithNothingWhileNothingIsGained) {
    const std::string shown = written([&] {
        Progress progress("f", 100);
        progress.at(50, now_ + seconds(2));
        progress.at(40, now_ + seconds(3));
        for (unsigned second = 4; second <= 9; ++second)
            progress.at(40, now_ + seconds(second));
    });
    EXPECT_NE(shown.find("f  40 %  40 B of 100 B  0 B/s "), std::string::npos) << shown;
}

TEST_F(ProgressTest, HasNothingToShowOfNothing) {
    EXPECT_EQ(written([&] { Progress("f", 0).at(0, now_ + seconds(9)); }), "");
}

TEST_F(ProgressTest, ShowsNothingWhereNobodyLooks) {
    terminal::close();
    EXPECT_EQ(written([&] { Progress("f", 100).at(10, now_ + seconds(9)); }), "");
}

TEST_F(ProgressTest, ShowsNoControlCharacterOfAName) {
    const std::string shown = written([&] { Progress("a\33[2J\rb", 100).at(10, now_ + seconds(9)); });
    EXPECT_TRUE(shown.starts_with("\ra?[2J?b  10 %")) << shown;
}

}  // namespace
}  // namespace terminal
