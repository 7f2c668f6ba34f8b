// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/begun_removals.h"

#include <gmock/gmock.h>

#include <cerrno>

#include "nfstdm/files/path_operations.h"
#include "tests/unit/files/fixture.h"

namespace nfstdm::test {
namespace {

class BegunRemovalsTest : public MountedTest {
  protected:
    BegunRemovalsTest() { one_.add_directory("/d"); }

    // A file of which everything is known that a listing tells.
    std::string add_known(const std::string &name) {
        one_.add_file("/d/" + name);
        return known("/mnt/one/d/" + name);
    }
    bool begin(const std::string &path, bool is_in_use = false) {
        return paths_.expect_removal(path, [is_in_use](const Place &) { return is_in_use; });
    }
    Status remove(const std::string &path) {
        return paths_.remove(path, [](const Place &) { return Status{}; }).status();
    }
    Status look(const std::string &path) {
        Attributes attributes;
        return paths_.get_attributes(path, attributes).status();
    }
    unsigned asked() { return one_.total_calls() - one_.calls[Op::remove]; }

    PathOperations paths_{mounts_, 0755};
};

TEST_F(BegunRemovalsTest, FilesGoTogetherAndNothingElseIsAsked) {
    std::vector<std::string> paths;
    for (const char *name : {"a", "b", "c"})
        paths.push_back(add_known(name));
    const unsigned before = asked();
    for (const auto &path : paths)
        EXPECT_TRUE(begin(path));
    loop_.poll_once();
    EXPECT_EQ(one_.calls[Op::remove], 3U);
    EXPECT_FALSE(one_.exists("/d/c"));
    for (const auto &path : paths)
        EXPECT_TRUE(remove(path).ok());
    EXPECT_EQ(one_.calls[Op::remove], 3U);
    EXPECT_EQ(asked(), before);
    EXPECT_EQ(look(paths.front()).number(), uint32_t{ENOENT});
}

TEST_F(BegunRemovalsTest, UntilItsOutcomeIsTakenAFileIsThereHoweverLongThatIs) {
    const auto path = add_known("a");
    ASSERT_TRUE(begin(path));
    loop_.poll_once();
    ASSERT_FALSE(one_.exists("/d/a"));
    now_ += std::chrono::seconds(60);
    EXPECT_TRUE(look(path).ok());
    EXPECT_TRUE(remove(path).ok());
    EXPECT_EQ(look(path).number(), uint32_t{ENOENT});
}

TEST_F(BegunRemovalsTest, AFailureIsToldWhenItIsItsTurn) {
    const auto path = add_known("a");
    one_.fail_next(Op::remove, EACCES);
    ASSERT_TRUE(begin(path));
    EXPECT_EQ(remove(path).number(), uint32_t{EACCES});
    EXPECT_TRUE(one_.exists("/d/a"));
    EXPECT_TRUE(remove(path).ok());
    EXPECT_FALSE(one_.exists("/d/a"));
}

TEST_F(BegunRemovalsTest, OneThatSomebodyElseRemovedIsToldSo) {
    const auto path = add_known("a");
    one_.remove_child(one_.find("/d"), "a");
    ASSERT_TRUE(begin(path));
    EXPECT_EQ(remove(path).number(), uint32_t{ENOENT});
}

TEST_F(BegunRemovalsTest, AStaleDirectoryIsLookedUpAgain) {
    const auto path = add_known("a");
    one_.fail_next(Op::remove, ESTALE);
    ASSERT_TRUE(begin(path));
    EXPECT_TRUE(remove(path).ok());
    EXPECT_FALSE(one_.exists("/d/a"));
}

TEST_F(BegunRemovalsTest, ALinkGoesAndNotWhatItLeadsTo) {
    add_known("a");
    one_.add_link("/d/link", "a");
    const auto path = known("/mnt/one/d/link");
    ASSERT_TRUE(begin(path));
    EXPECT_TRUE(remove(path).ok());
    EXPECT_TRUE(one_.exists("/d/a"));
    EXPECT_FALSE(one_.exists("/d/link"));
}

TEST_F(BegunRemovalsTest, OnlyWhatIsKnownAndNoDirectoryAndNotInUseIsBegun) {
    one_.add_file("/d/unknown");
    one_.add_directory("/d/below");
    one_.add_link("/d/link", "below");
    known("/mnt/one/d/below");
    known("/mnt/one/d/link");
    EXPECT_FALSE(begin(add_known("used"), true));
    for (const char *path : {"/mnt/one/d/unknown", "/mnt/one/d/below", "/mnt/one/d/link/a", "/mnt/one/d", "/mnt/one",
                             "/mnt/two/a", "/local", "relative", "/mnt/one/d/none"})
        EXPECT_FALSE(begin(path)) << path;
    loop_.poll_once();
    EXPECT_EQ(one_.calls[Op::remove], 0U);
    EXPECT_EQ(two_.total_calls(), 0U);
}

TEST_F(BegunRemovalsTest, IsBegunOnce) {
    const auto path = add_known("a");
    EXPECT_TRUE(begin(path));
    EXPECT_FALSE(begin(path));
    EXPECT_TRUE(remove(path).ok());
    EXPECT_EQ(one_.calls[Op::remove], 1U);
}

TEST_F(BegunRemovalsTest, SoManyAtATimeAndNoMore) {
    std::vector<std::string> paths;
    for (std::size_t i = 0; i <= BegunRemovals::kMaximum; ++i)
        paths.push_back(add_known("f" + std::to_string(i)));
    const std::string last = paths.back();
    paths.pop_back();
    for (const auto &path : paths)
        EXPECT_TRUE(begin(path));
    EXPECT_FALSE(begin(last));
    EXPECT_TRUE(remove(paths.front()).ok());
    EXPECT_TRUE(begin(last));
    EXPECT_TRUE(remove(last).ok());
}

TEST_F(BegunRemovalsTest, WhatNobodyWaitsForIsNoHarm) {
    EXPECT_TRUE(begin(add_known("a")));
    loop_.poll_once();
    mounts_.detach();
}

}  // namespace
}  // namespace nfstdm::test
