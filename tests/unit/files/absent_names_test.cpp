// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/absent_names.h"

#include <cerrno>

#include "nfstdm/files/open_files.h"
#include "nfstdm/files/path_operations.h"
#include "tests/unit/files/fixture.h"

namespace nfstdm::test {
namespace {

// Makes files as a copy does: each name is looked for first.
class AbsentNamesTest : public MountedTest {
  protected:
    AbsentNamesTest() {
        one_.add_directory("/d");
        EXPECT_TRUE(is_there("/mnt/one/d"));
        one_.calls.clear();
    }
    bool is_there(const std::string &path) {
        Attributes attributes;
        const auto where = paths_.get_attributes(path, attributes);
        EXPECT_TRUE(where.ok() || where.status().number() == ENOENT) << where.status().text();
        return where.ok();
    }
    bool has(const std::string &name) { return is_there("/mnt/one/d/" + name); }
    void make(const std::string &path) {
        is_there(path);
        const auto file = files_.create(path);
        ASSERT_TRUE(file.ok()) << file.status().text();
        EXPECT_TRUE(files_.close(file.value()->identifier).ok());
    }
    // Files with new names.
    void make_some(std::size_t count, const std::string &folder = "/mnt/one/d/") {
        for (std::size_t i = 0; i < count; ++i)
            make(folder + "f" + std::to_string(made_++));
    }
    // After which the directory is known.
    void make_first() {
        make_some(AbsentNames::kMadeMinimum + 2);  // one more where somebody else changed it before
        ASSERT_EQ(listings(), 1U);
        one_.calls.clear();
    }
    void add_files(const std::string &folder, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            one_.add_file(folder + "/old" + std::to_string(i));
    }
    unsigned lookups() { return one_.calls[Op::lookup]; }
    unsigned listings() { return one_.calls[Op::readdir]; }

    PathOperations paths_{mounts_, 0755};
    OpenFiles files_{mounts_, 0644};
    std::size_t made_ = 0;
};

TEST_F(AbsentNamesTest, OfManyNewFilesOnlyTheFirstFewAreLookedUp) {
    make_some(1000);
    EXPECT_EQ(lookups(), AbsentNames::kMadeMinimum);
    EXPECT_EQ(listings(), 1U);
    EXPECT_EQ(one_.calls[Op::create], 1000U);
    EXPECT_EQ(one_.at("/d").children.size(), 1000U);
}

TEST_F(AbsentNamesTest, WhatADirectoryLacksIsAskedForAnewAfterASecond) {
    make_first();
    now_ += std::chrono::milliseconds(999);
    make_some(4);
    EXPECT_EQ(listings(), 0U);
    now_ += std::chrono::milliseconds(1);
    make_some(4);
    EXPECT_EQ(listings(), 1U);
    EXPECT_EQ(lookups(), 0U);
}

TEST_F(AbsentNamesTest, AFileThatSomebodyMadeIsFoundASecondLater) {
    make_first();
    one_.add_file("/d/theirs");
    now_ += std::chrono::seconds(1);
    EXPECT_TRUE(has("theirs"));
}

TEST_F(AbsentNamesTest, ANameThatTheDirectoryHasIsLookedUp) {
    one_.add_file("/d/theirs", pattern(10));
    make_first();
    EXPECT_TRUE(has("theirs"));
    EXPECT_EQ(lookups(), 1U);
}

TEST_F(AbsentNamesTest, FilesThatAreWrittenOverAreNoReasonToList) {
    add_files("/d", 50);
    for (std::size_t i = 0; i < 50; ++i)
        make("/mnt/one/d/old" + std::to_string(i));
    EXPECT_EQ(listings(), 0U);
}

TEST_F(AbsentNamesTest, NamesThatAreOnlyLookedForAreNoReasonToList) {
    for (std::size_t i = 0; i < 50; ++i)
        EXPECT_FALSE(has("missing" + std::to_string(i)));
    EXPECT_EQ(lookups(), 50U);
    EXPECT_EQ(listings(), 0U);
}

TEST_F(AbsentNamesTest, FilesThatAreMadeNowAndThenAreNoReasonToList) {
    for (int i = 0; i < 20; ++i) {
        make_some(1);
        now_ += std::chrono::milliseconds(1001);
    }
    make_some(AbsentNames::kMadeMinimum);
    EXPECT_EQ(listings(), 0U);
}

TEST_F(AbsentNamesTest, WhatThisClientMadeIsThereWhateverTheListingSaid) {
    mounts_.expect_others();
    make_first();
    make("/mnt/one/d/mine");
    one_.add_file("/d/theirs");
    make_some(1);  // by which the change shows, and what was known of names is forgotten
    EXPECT_TRUE(has("mine"));
}

TEST_F(AbsentNamesTest, AFileThatMayHaveBeenMadeIsLookedUp) {
    make_first();
    one_.fail_next(Op::create, EIO);
    EXPECT_FALSE(files_.create("/mnt/one/d/doubtful").ok());
    one_.add_file("/d/doubtful");
    EXPECT_TRUE(has("doubtful"));
}

TEST_F(AbsentNamesTest, WhatWasRemovedIsLookedUpBeforeItIsMadeAgain) {
    make_first();
    ASSERT_TRUE(paths_.remove("/mnt/one/d/f0", [](const Place &) { return Status{}; }).ok());
    EXPECT_FALSE(has("f0"));
    EXPECT_EQ(lookups(), 1U);
    make_some(10);
    EXPECT_EQ(lookups(), 1U);
}

TEST_F(AbsentNamesTest, NamesAreLookedUpAnewOnceSomebodyElseChangedTheDirectory) {
    make_first();
    one_.add_file("/d/theirs");
    make_some(1);
    EXPECT_TRUE(has("theirs"));
    one_.calls.clear();
    make_some(3);
    EXPECT_EQ(lookups(), 3U);
}

TEST_F(AbsentNamesTest, AmongProcessesThatChangeTheDirectoryTooAListingHoldsItsSecond) {
    mounts_.expect_others();
    make_first();
    one_.add_file("/d/theirs");
    make_some(10);
    EXPECT_EQ(lookups(), 0U);
    EXPECT_EQ(listings(), 0U);
    now_ += std::chrono::seconds(1);
    EXPECT_TRUE(has("theirs"));
}

TEST_F(AbsentNamesTest, EverythingIsAskedAnewWhenHandlesAreForgotten) {
    make_first();
    one_.add_file("/d/theirs");
    mounts_.forget_handles();
    EXPECT_TRUE(has("theirs"));
}

TEST_F(AbsentNamesTest, ANameThatDiffersInItsCaseAloneIsLookedUp) {
    one_.add_file("/d/Theirs");
    make_first();
    for (const char *name : {"theirs", "THEIRS", "F0"})
        EXPECT_FALSE(has(name));
    EXPECT_EQ(lookups(), 3U);
}

// A server may find each of them although it lists no such name.
TEST_F(AbsentNamesTest, NamesThatServersKeepOutOfListingsOrMapAreLookedUp) {
    make_first();
    const std::vector<std::string> names = {".snapshot",          "progra~1", "end.",        "end ",  "gr\u00f6n",
                                            "a:stream",           "what?",    "back\\slash", "tab\t", "$Extend",
                                            std::string(200, 'l')};
    for (const std::string &name : names)
        EXPECT_FALSE(has(name));
    EXPECT_EQ(lookups(), names.size());
}

TEST_F(AbsentNamesTest, ADirectoryWithANameThatCouldBeWrittenOtherwiseIsLookedUpIn) {
    one_.add_file("/d/\u212aelvin");  // some servers take the Kelvin sign for the letter
    make_some(50);
    EXPECT_FALSE(has("kelvin"));
    EXPECT_GT(lookups(), 50U);
}

TEST_F(AbsentNamesTest, OwnNamesThatCouldBeWrittenOtherwiseEndWhatAListingTells) {
    make_first();
    make("/mnt/one/d/\u212aelvin");
    EXPECT_FALSE(has("kelvin"));
    EXPECT_EQ(lookups(), 2U);
}

TEST_F(AbsentNamesTest, ADirectoryThatOneAnswerDoesNotHoldIsSeldomAskedAgain) {
    one_.entries_per_reply = 100;
    add_files("/d", 150);
    make_some(100);
    EXPECT_EQ(lookups(), 100U);
    EXPECT_EQ(listings(), 1U);
    make_some(10);
    EXPECT_EQ(lookups(), 110U);
    EXPECT_EQ(listings(), 2U) << "after as many new names as it had told";
}

TEST_F(AbsentNamesTest, ALongListingIsAskedForAnewWhenEnoughNamesWereMade) {
    one_.entries_per_reply = 10000;
    add_files("/d", 20 * AbsentNames::kNamesForOne);
    make_some(10);
    now_ += std::chrono::seconds(1);
    make_some(8);
    EXPECT_EQ(listings(), 1U);
    make_some(40);
    EXPECT_EQ(listings(), 2U);
}

TEST_F(AbsentNamesTest, ADirectoryThatMayNotBeListedIsAskedOnce) {
    one_.fail_next(Op::readdir, EACCES);
    make_some(1000);
    EXPECT_EQ(listings(), 1U);
    EXPECT_EQ(lookups(), 1000U);
}

TEST_F(AbsentNamesTest, InADirectoryThatWasMadeHereNoNameIsLookedUpForASecond) {
    ASSERT_TRUE(paths_.make_directory("/mnt/one/d/new").ok());
    one_.calls.clear();
    make_some(3, "/mnt/one/d/new/");
    EXPECT_EQ(lookups(), 0U);
    now_ += std::chrono::seconds(1);
    one_.add_file("/d/new/theirs");
    EXPECT_TRUE(has("new/theirs"));
    EXPECT_EQ(listings(), 0U);
}

TEST_F(AbsentNamesTest, ADirectoryThatMayHaveBeenMadeBeforeIsLookedUpIn) {
    one_.resent_mkdir = FakeServer::ResentMkdir{EventLoop::Clock::now(), true};
    one_.clock.seconds = 1;
    static_cast<void>(paths_.make_directory("/mnt/one/d/new"));
    ASSERT_TRUE(one_.exists("/d/new"));
    one_.add_file("/d/new/theirs");
    EXPECT_TRUE(has("new/theirs"));
}

TEST_F(AbsentNamesTest, OnlyTheDirectoriesOfLateAreKept) {
    for (int i = 0; i < 40; ++i) {
        const std::string folder = "/mnt/one/new" + std::to_string(i);
        ASSERT_TRUE(paths_.make_directory(folder).ok());
        make_some(2, folder + "/");
    }
    one_.calls.clear();
    make_some(1, "/mnt/one/new39/");
    EXPECT_EQ(lookups(), 0U);
    make_some(1, "/mnt/one/new0/");
    EXPECT_EQ(lookups(), 1U);
}

}  // namespace
}  // namespace nfstdm::test
