// SPDX-License-Identifier: Apache-2.0
#include <gmock/gmock.h>

#include <cerrno>

#include "nfstdm/files/path_operations.h"
#include "tests/support/allocation_faults.h"
#include "tests/unit/files/fixture.h"

namespace nfstdm::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

class DirectoryTest : public MountedTest {
  protected:
    std::vector<std::string> add_files(std::size_t count) {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < count; ++i) {
            names.push_back("name" + std::to_string(i * 7919 % 1000));
            one_.add_file("/" + names.back());
        }
        return names;
    }

    // All names in batches, each call going on from the entry `back` places before the last one given.
    std::vector<std::string> list(std::size_t most, std::size_t back = 0) {
        std::vector<std::string> names;
        uint64_t position = 0;
        while (true) {
            DirectoryStream::Batch batch;
            const auto where = paths_.list("/mnt/one", position, most, batch);
            EXPECT_TRUE(where.ok()) << where.status().text();
            if (!where.ok()) return names;
            EXPECT_TRUE(batch.at_end || batch.entries.size() == most);
            const std::size_t taken = batch.at_end ? batch.entries.size() : batch.entries.size() - back;
            for (const auto &entry : batch.entries.first(taken))
                names.emplace_back(entry.name);
            if (batch.at_end) return names;
            position += taken;
        }
    }
    std::vector<std::string> with_dots(std::vector<std::string> names) {
        names.insert(names.begin(), {".", ".."});
        return names;
    }
    std::vector<std::string> add_many(std::size_t count) {
        std::vector<std::string> names;
        for (std::size_t i = 0; i < count; ++i) {
            names.push_back("n" + std::to_string(i));
            one_.add_child(1, names.back(), FileType::regular);
        }
        one_.entries_per_reply = 1000;
        return names;
    }
    Status failure_of(const std::string &name) {
        Attributes attributes;
        return paths_.get_attributes("/mnt/one/" + name, attributes).status();
    }
    uint64_t size_of(const std::string &name) {
        Attributes attributes;
        EXPECT_TRUE(paths_.get_attributes("/mnt/one/" + name, attributes).ok());
        return attributes.size;
    }
    Status failure_after(std::size_t most) {
        DirectoryStream::Batch batch;
        return paths_.list("/mnt/one", 0, most, batch).status();
    }
    Status failure_of_listing() { return failure_after(1024); }

    PathOperations paths_{mounts_, 0755};
};

TEST_F(DirectoryTest, BatchesOfFourContinuedFromTheSecondToLastEntryGiveEveryNameOnce) {
    for (std::size_t count = 0; count <= 50; ++count) {
        one_ = FakeServer();
        mounts_.forget_handles();
        one_.entries_per_reply = 1 + count % 7;
        const auto names = add_files(count);
        EXPECT_THAT(list(4, 1), ElementsAreArray(with_dots(names))) << count;
    }
}

TEST_F(DirectoryTest, TenThousandNamesComeOnceInTheServersOrderAndNeedNoFurtherLookups) {
    std::vector<std::string> names;
    for (int i = 0; i < 10000; ++i) {
        names.push_back("n" + std::to_string(i));
        one_.add_child(1, names.back(), FileType::regular);
    }
    one_.entries_per_reply = 150;
    EXPECT_THAT(list(1024, 1), ElementsAreArray(with_dots(names)));
    Attributes attributes;
    for (const auto &name : names)
        ASSERT_TRUE(paths_.get_attributes("/mnt/one/" + name, attributes).ok());
    EXPECT_LE(one_.total_calls(), 10000U / 20);
}

TEST_F(DirectoryTest, TheFirstTwoEntriesAreTheDotsWhetherTheServerSendsThemOrNot) {
    add_files(1);
    for (const bool lists_dots : {true, false}) {
        one_.lists_dots = lists_dots;
        EXPECT_THAT(list(10), ElementsAre(".", "..", "name0"));
    }
    one_.lists_dots = true;
    DirectoryStream::Batch batch;
    ASSERT_TRUE(paths_.list("/mnt/one", 0, 10, batch).ok());
    EXPECT_EQ(batch.entries[0].fileid, 1U);
    EXPECT_EQ(batch.entries[1].fileid, 77U);
}

TEST_F(DirectoryTest, HostileNamesNeverReachTheCaller) {
    add_files(1);
    for (const std::string &name :
         {std::string(), std::string("a/b"), std::string("../../etc/passwd"), std::string("nul\0name", 8),
          std::string("."), std::string(".."), std::string(516, 'x'), std::string("/")})
        one_.extra_entries.push_back({5, 0, name, {}, {}});
    one_.extra_entries.push_back({6, 0, std::string(515, 'y'), {}, {}});
    EXPECT_THAT(list(1024), ElementsAre(".", "..", "name0", std::string(515, 'y')));
    EXPECT_EQ(paths_.names_refused(), 6U);
}

TEST_F(DirectoryTest, ANameSentTwiceComesOnce) {
    add_files(2);
    one_.extra_entries = {{9, 0, "name0", {}, {}}, {10, 0, "last", {}, {}}};
    EXPECT_THAT(list(4), ElementsAre(".", "..", "name0", "name919", "last"));
}

TEST_F(DirectoryTest, AServerWithoutReaddirplusIsListedWithReaddirAndAskedOnlyOnce) {
    one_.has_readdirplus = false;
    one_.entries_per_reply = 3;
    const auto names = add_files(10);
    EXPECT_THAT(list(1024), ElementsAreArray(with_dots(names)));
    EXPECT_EQ(one_.calls[Op::readdir], 5U);
}

TEST_F(DirectoryTest, TheServerWorksOnWhatFollowsWhileAPartIsGiven) {
    one_.entries_per_reply = 5;
    add_files(20);
    DirectoryStream::Batch batch;
    ASSERT_TRUE(paths_.list("/mnt/one", 0, 4, batch).ok());
    loop_.poll_once();
    EXPECT_EQ(one_.calls[Op::readdir], 2U);
    ASSERT_TRUE(paths_.list("/mnt/one", 4, 4, batch).ok());
    loop_.poll_once();
    EXPECT_EQ(one_.calls[Op::readdir], 3U);
}

TEST_F(DirectoryTest, AnAnswerThatWasAskedForLongAgoIsAskedForAgain) {
    one_.entries_per_reply = 5;
    const auto names = add_files(20);
    DirectoryStream::Batch batch;
    ASSERT_TRUE(paths_.list("/mnt/one", 0, 4, batch).ok());
    now_ += ObjectCache::kLifetime;
    ASSERT_TRUE(paths_.list("/mnt/one", 4, 4, batch).ok());
    loop_.poll_once();
    EXPECT_EQ(one_.calls[Op::readdir], 4U);
    EXPECT_THAT(list(4), ElementsAreArray(with_dots(names)));
}

TEST_F(DirectoryTest, ADirectoryMayBeLeftWhileItsNextPartIsOnItsWay) {
    one_.entries_per_reply = 5;
    add_files(20);
    DirectoryStream::Batch batch;
    ASSERT_TRUE(paths_.list("/mnt/one", 0, 4, batch).ok());
    mounts_.detach();
    loop_.poll_once();
    EXPECT_EQ(batch.entries.size(), 4U);
}

TEST_F(DirectoryTest, AfterABadCookieTheListingStartsAgainAndNoNameComesTwice) {
    one_.entries_per_reply = 5;
    const auto names = add_files(20);
    one_.bad_cookies = {10, 15};
    EXPECT_THAT(list(4, 1), ElementsAreArray(with_dots(names)));
    EXPECT_TRUE(one_.bad_cookies.empty());
}

TEST_F(DirectoryTest, CookiesThatLeadBackAreAnError) {
    one_.entries_per_reply = 5;
    add_files(20);
    one_.cookie_overrides = {{15, 5}};
    EXPECT_EQ(failure_of_listing().number(), uint32_t{EIO});
    one_.cookie_overrides = {{5, 0}};
    EXPECT_EQ(failure_of_listing().number(), uint32_t{EIO});
}

TEST_F(DirectoryTest, ADirectoryThatNeverEndsIsAnError) {
    add_files(3);
    one_.directories_end = false;
    EXPECT_EQ(failure_of_listing().number(), uint32_t{EIO});
}

TEST_F(DirectoryTest, ADirectoryOfLongNamesWithoutEndIsGivenUpBeforeItFillsTheMemory) {
    one_.entries_per_reply = 4096;
    one_.makes_up_names = 512;
    const std::size_t before = allocated_bytes();
    const Status failure = failure_after(1 << 20);
    EXPECT_EQ(failure.number(), uint32_t{EOVERFLOW});
    EXPECT_THAT(failure.text(), ::testing::HasSubstr("does not end, or holds more names than fit 256 MiB"));
    EXPECT_LT(allocated_bytes() - before, DirectoryStream::kBytesMaximum * 3 / 2);
    EXPECT_LT(one_.calls[Op::readdir], 256U);
}

TEST_F(DirectoryTest, AListingGoesOnFromAnyOfItsEntries) {
    const auto names = with_dots(add_files(30));
    one_.entries_per_reply = 7;
    for (const uint64_t position : {17, 3, 1, 0, 31, 30, 2, 29}) {
        DirectoryStream::Batch batch;
        ASSERT_TRUE(paths_.list("/mnt/one", position, 5, batch).ok());
        ASSERT_FALSE(batch.entries.empty());
        for (std::size_t i = 0; i < batch.entries.size(); ++i)
            EXPECT_EQ(batch.entries[i].name, names[position + i]);
    }
}

TEST_F(DirectoryTest, AnEntryFromBeforeTheLatestBatchIsReadAgainFromWhereItsPartBegan) {
    const auto names = with_dots(add_many(10000));
    EXPECT_THAT(list(1024), ElementsAreArray(names));
    one_.calls.clear();
    DirectoryStream::Batch batch;
    ASSERT_TRUE(paths_.list("/mnt/one", 7003, 4, batch).ok());
    EXPECT_EQ(batch.entries[0].name, names[7003]);
    loop_.poll_once();
    EXPECT_EQ(one_.calls[Op::readdir], 2U) << "one, and what follows";
}

TEST_F(DirectoryTest, WalkingALongListingInOrderCostsOneCallAThousandEntries) {
    constexpr std::size_t kCount = 100000;
    const auto names = add_many(kCount);
    for (const std::size_t names_alone : {1, 6}) {
        one_.names_per_entry = names_alone;
        one_.calls.clear();
        now_ += ObjectCache::kLifetime;
        EXPECT_THAT(list(1024, 1), ElementsAreArray(with_dots(names)));
        for (const auto &name : names)
            ASSERT_EQ(failure_of(name).number(), 0U);
        EXPECT_LE(one_.total_calls(), kCount / 1000 * 2 + 10);
    }
}

TEST_F(DirectoryTest, WhatTheCacheForgotInTheMeantimeIsLearntAgainByTheThousand) {
    const auto names = add_many(5000);
    EXPECT_THAT(list(1024, 1), ElementsAreArray(with_dots(names)));
    now_ += ObjectCache::kLifetime;
    one_.calls.clear();
    for (const auto &name : names)
        ASSERT_EQ(failure_of(name).number(), 0U);
    EXPECT_LE(one_.total_calls(), 5U + 5);
}

TEST_F(DirectoryTest, AnExpectedListingTellsTheAttributesOfAllEntriesInOnePass) {
    constexpr std::size_t kCount = 100000;
    const auto names = add_many(kCount);
    paths_.expect_attributes("/mnt/one");
    EXPECT_THAT(list(1024, 1), ElementsAreArray(with_dots(names)));
    now_ += 10 * ObjectCache::kLifetime;
    for (const auto &name : names)
        ASSERT_EQ(failure_of(name).number(), 0U);
    EXPECT_LE(one_.calls[Op::readdir], kCount / 1000 + 1);
    EXPECT_EQ(one_.calls[Op::lookup], 0U);
}

TEST_F(DirectoryTest, WhatAnExpectedListingToldIsToldUntilSomethingIsChangedHere) {
    add_many(3);
    one_.at("/n0").attributes.size = 5;
    paths_.expect_attributes("/mnt/one");
    list(1024);
    one_.at("/n0").attributes.size = 6;
    now_ += 10 * ObjectCache::kLifetime;
    EXPECT_EQ(size_of("n0"), 5U);
    EXPECT_EQ(size_of("n0"), 5U);
    ASSERT_TRUE(paths_.set_permissions("/mnt/one/n1", 0600).ok());
    EXPECT_EQ(size_of("n0"), 6U);
}

TEST_F(DirectoryTest, AListingThatWasNotExpectedTellsNothingThatIsOld) {
    add_many(3);
    paths_.expect_attributes("/mnt/two");
    list(1024);
    one_.at("/n0").attributes.size = 6;
    now_ += 10 * ObjectCache::kLifetime;
    EXPECT_EQ(size_of("n0"), 6U);
}

TEST_F(DirectoryTest, OnlyTheNextListingIsTheExpectedOne) {
    add_many(3);
    paths_.expect_attributes("/mnt/one");
    list(1024);
    list(1024);
    one_.at("/n0").attributes.size = 6;
    now_ += 10 * ObjectCache::kLifetime;
    EXPECT_EQ(size_of("n0"), 6U);
}

TEST_F(DirectoryTest, AnEntryThatAnExpectedListingToldOfIsTheObjectThatTheServerNames) {
    add_many(2);
    Attributes attributes;
    ObjectName before;
    ASSERT_TRUE(paths_.get_attributes("/mnt/one/n1", attributes, &before).ok());
    paths_.expect_attributes("/mnt/one");
    list(1024);
    ObjectName listed;
    ASSERT_TRUE(paths_.get_attributes("/mnt/one/n1", attributes, &listed).ok());
    EXPECT_EQ(listed.server, before.server);
    EXPECT_EQ(listed.handle_digest, before.handle_digest);
}

TEST_F(DirectoryTest, WhatTheMemoryForAnExpectedListingDoesNotHoldIsLearntByTheThousand) {
    constexpr std::size_t kCount = 60000;
    const auto names = add_many(kCount);
    const auto directory = mounts_.mount(0).root();
    ASSERT_TRUE(directory.ok());
    DirectoryStream stream(mounts_.mount(0), {directory.value(), one_.node(1).attributes}, std::size_t{4} << 20);
    ASSERT_TRUE(stream.batch(0, kCount + 2).ok());
    now_ += ObjectCache::kLifetime;
    one_.calls.clear();
    for (const auto &name : names)
        ASSERT_EQ(failure_of(name).number(), 0U);
    EXPECT_LE(one_.calls[Op::readdir], 20U);
    EXPECT_LE(one_.calls[Op::lookup], 1U);
}

TEST_F(DirectoryTest, EntriesAskedForHereAndThereAreLookedUpOneByOne) {
    const auto names = add_many(50000);
    EXPECT_THAT(list(1024, 1), ElementsAreArray(with_dots(names)));
    now_ += ObjectCache::kLifetime;
    one_.calls.clear();
    for (std::size_t i = 500; i < names.size(); i += 2000)
        ASSERT_EQ(failure_of(names[i]).number(), 0U);
    EXPECT_EQ(one_.calls[Op::readdir], 0U);
}

TEST_F(DirectoryTest, AnEntryThatWasRemovedSinceItWasListedIsNotThere) {
    const auto names = add_many(3000);
    EXPECT_THAT(list(1024, 1), ElementsAreArray(with_dots(names)));
    now_ += ObjectCache::kLifetime;
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string path = "/mnt/one/" + names[i];
        ASSERT_TRUE(paths_.remove(path, [](const Place &) { return Status{}; }).ok()) << i;
        ASSERT_EQ(failure_of(names[i]).number(), uint32_t{ENOENT}) << i;
    }
}

TEST_F(DirectoryTest, WhereTheServerDoesNotGoOnFromEntriesAreLookedUp) {
    const auto names = add_many(3000);
    EXPECT_THAT(list(1024, 1), ElementsAreArray(with_dots(names)));
    now_ += ObjectCache::kLifetime;
    one_.fail_next(Op::readdir, EBADE);
    one_.calls.clear();
    for (const auto &name : names)
        ASSERT_EQ(failure_of(name).number(), 0U);
    EXPECT_EQ(one_.calls[Op::readdir], 1U);
    EXPECT_EQ(one_.calls[Op::lookup], 3000U);
}

TEST_F(DirectoryTest, BeyondTheEndThereIsNothing) {
    add_files(3);
    for (const uint64_t position : {5UL, 6UL, UINT64_MAX}) {
        DirectoryStream::Batch batch;
        ASSERT_TRUE(paths_.list("/mnt/one", position, 5, batch).ok());
        EXPECT_TRUE(batch.entries.empty());
        EXPECT_TRUE(batch.at_end);
    }
}

TEST_F(DirectoryTest, AListingThatWasInterruptedByAnotherGoesOn) {
    one_.add_directory("/d");
    one_.add_file("/d/inner");
    const auto names = with_dots([this] {
        auto all = add_files(9);
        all.insert(all.begin(), "d");
        return all;
    }());
    DirectoryStream::Batch batch;
    ASSERT_TRUE(paths_.list("/mnt/one", 0, 4, batch).ok());
    ASSERT_TRUE(paths_.list("/mnt/one/d", 0, 4, batch).ok());
    ASSERT_TRUE(paths_.list("/mnt/one", 4, 4, batch).ok());
    EXPECT_EQ(batch.entries[0].name, names[4]);
}

TEST_F(DirectoryTest, AFileCannotBeListedAndALinkToADirectoryCan) {
    one_.add_file("/f");
    one_.add_directory("/d");
    one_.add_link("/l", "d");
    DirectoryStream::Batch batch;
    EXPECT_EQ(paths_.list("/mnt/one/f", 0, 5, batch).status().number(), uint32_t{ENOTDIR});
    EXPECT_TRUE(paths_.list("/mnt/one/l", 0, 5, batch).ok());
}

}  // namespace
}  // namespace nfstdm::test
