// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/open_files.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>

#include "nfstdm/files/path_operations.h"
#include "tests/support/allocation_faults.h"
#include "tests/unit/files/fixture.h"

namespace nfstdm::test {
namespace {

constexpr std::size_t kMiB = 1 << 20;

class OpenFilesTest : public MountedTest {
  protected:
    OpenFile &identify(const std::string &path) {
        auto file = files_.identify(path);
        EXPECT_TRUE(file.ok()) << file.status().text();
        opened_ = *file.value();
        return *files_.find(opened_.identifier);
    }
    OpenFile &create(const std::string &path, std::span<const std::byte> content = {}) {
        auto file = files_.create(path, content);
        EXPECT_TRUE(file.ok()) << file.status().text();
        opened_ = *file.value();
        return *files_.find(opened_.identifier);
    }
    Status read(OpenFile &file, uint64_t offset, std::span<std::byte> buffer) {
        std::optional<Status> result;
        file.read(offset, buffer, [&result](Status status) { result = std::move(status); });
        while (!result) {
            loop_.run_until([&] { return result || file.needs_recovery(); });
            file.recover();
        }
        return *result;
    }
    Status write_all(OpenFile &file, std::span<const std::byte> data, std::size_t piece = 32 << 10) {
        for (uint64_t offset = 0; offset < data.size(); offset += piece) {
            const auto part = data.subspan(offset, std::min(piece, data.size() - offset));
            if (Status failure = file.write(offset, part); !failure.ok()) return failure;
        }
        return {};
    }
    static bool same(std::span<const std::byte> left, std::span<const std::byte> right) {
        return left.size() == right.size() &&
               (left.empty() || std::memcmp(left.data(), right.data(), left.size()) == 0);
    }

    std::size_t move_many(const std::string &folder, std::size_t count);

    OpenFiles files_{mounts_, 0640};
    OpenedFile opened_;
};

TEST_F(OpenFilesTest, AFileIsIdentifiedThroughALinkADirectoryAndALocalPathAreNot) {
    one_.add_file("/f", pattern(100));
    one_.add_link("/l", "f");
    one_.add_directory("/d");
    identify("/mnt/one/l");
    EXPECT_EQ(opened_.size, 100U);
    EXPECT_EQ(opened_.path, "/mnt/one/f");
    EXPECT_EQ(files_.identify("/mnt/one/d").status().number(), uint32_t{EISDIR});
    EXPECT_EQ(files_.identify("/mnt/one").status().number(), uint32_t{EISDIR});
    EXPECT_EQ(files_.identify("/mnt/one/none").status().number(), uint32_t{ENOENT});
    EXPECT_FALSE(files_.identify("/local").value());
    EXPECT_FALSE(files_.create("/local").value());
}

TEST_F(OpenFilesTest, AFileOpenedTwiceHasOneIdentifierAndStaysOpenUntilClosedTwice) {
    one_.add_file("/f");
    one_.add_link("/l", "f");
    identify("/mnt/one/f");
    const auto identifier = opened_.identifier;
    identify("/mnt/one/l");
    EXPECT_EQ(opened_.identifier, identifier);
    EXPECT_TRUE(files_.close(identifier).ok());
    EXPECT_NE(files_.find(identifier), nullptr);
    EXPECT_TRUE(files_.close(identifier).ok());
    EXPECT_EQ(files_.find(identifier), nullptr);
    EXPECT_EQ(files_.close(identifier).number(), uint32_t{EBADF});
}

TEST_F(OpenFilesTest, AFileIsOpenedOnTheServerWhenItIsReadOrWrittenAndNotBefore) {
    one_.add_file("/f", pattern(100));  // its id is 2
    auto &file = identify("/mnt/one/f");
    EXPECT_TRUE(file.flush().ok());
    EXPECT_THAT(one_.opens, testing::IsEmpty());
    std::vector<std::byte> buffer(10);
    EXPECT_TRUE(read(file, 0, buffer).ok());
    EXPECT_TRUE(read(file, 80, buffer).ok());
    EXPECT_THAT(one_.opens, testing::ElementsAre("open 2 to read"));
    ASSERT_TRUE(file.write(0, pattern(10, 2)).ok());
    ASSERT_TRUE(file.write(50, pattern(10, 2)).ok());
    ASSERT_TRUE(file.flush().ok());
    EXPECT_THAT(one_.opens, testing::ElementsAre("open 2 to read", "open 2 to write"));
}

TEST_F(OpenFilesTest, AFileIsGivenBackToTheServerWhenItWasClosedAsOftenAsItWasIdentified) {
    one_.add_file("/f", pattern(100));
    auto &file = identify("/mnt/one/f");
    identify("/mnt/one/f");
    std::vector<std::byte> buffer(10);
    ASSERT_TRUE(read(file, 0, buffer).ok());
    ASSERT_TRUE(files_.close(opened_.identifier).ok());
    EXPECT_THAT(one_.opens, testing::ElementsAre("open 2 to read"));
    ASSERT_TRUE(files_.close(opened_.identifier).ok());
    EXPECT_THAT(one_.opens, testing::ElementsAre("open 2 to read", "close 2 to read"));
}

TEST_F(OpenFilesTest, AFileThatRestsIsGivenBackToTheServerAndOpenedAgainWhenItIsWritten) {
    auto &file = create("/mnt/one/new");
    ASSERT_TRUE(file.write(0, pattern(10)).ok() && file.flush().ok());
    file.rest();
    EXPECT_THAT(one_.opens, testing::ElementsAre("open 2 to write", "close 2 to write"));
    ASSERT_TRUE(file.write(10, pattern(10)).ok() && file.flush().ok());
    EXPECT_EQ(one_.opens.back(), "open 2 to write");
    EXPECT_EQ(one_.at("/new").data.size(), 20U);
}

TEST_F(OpenFilesTest, WhatIsOpenSinceItWasMadeIsWrittenAsThat) {
    one_.keeps_made_open = true;
    auto &file = create("/mnt/one/new");
    ASSERT_TRUE(file.write(0, pattern(10)).ok() && file.resize(20).ok());
    EXPECT_THAT(one_.opens, testing::ElementsAre("open 2 to write"));
    ASSERT_TRUE(files_.close(opened_.identifier).ok());
    EXPECT_THAT(one_.opens, testing::ElementsAre("open 2 to write", "close 2 to write"));
}

TEST_F(OpenFilesTest, ANewFileIsEmptyAndHasThePermissionsAskedFor) {
    create("/mnt/one/new");
    EXPECT_EQ(opened_.size, 0U);
    EXPECT_EQ(one_.at("/new").attributes.mode, 0640U);
    EXPECT_EQ(one_.at("/new").data.size(), 0U);
    EXPECT_EQ(one_.calls[Op::setattr], 0U);
}

TEST_F(OpenFilesTest, ANewFileGrowsWithWhatIsWritten) {
    auto &file = create("/mnt/one/new");
    for (uint64_t i = 1; i <= 3; ++i) {
        ASSERT_TRUE(file.write((i - 1) * kMiB, pattern(kMiB)).ok());
        ASSERT_TRUE(file.flush().ok());
        EXPECT_EQ(one_.at("/new").data.size(), i * kMiB);
    }
}

TEST_F(OpenFilesTest, AFileThatAppearedSinceItsNameWasLookedUpIsEmptied) {
    EXPECT_EQ(files_.identify("/mnt/one/f").status().number(), uint32_t{ENOENT});
    one_.add_file("/f", pattern(3000));
    create("/mnt/one/f");
    EXPECT_EQ(opened_.size, 0U);
    EXPECT_TRUE(one_.at("/f").data.empty());
}

TEST_F(OpenFilesTest, CreatingAnExistingFileEmptiesItAndKeepsItsPermissions) {
    one_.add_file("/f", pattern(3000));
    create("/mnt/one/f");
    EXPECT_TRUE(one_.at("/f").data.empty());
    EXPECT_EQ(one_.at("/f").attributes.mode, 0644U);
}

TEST_F(OpenFilesTest, CreatingThroughALinkMakesItsTarget) {
    one_.add_link("/l", "../two/made");
    create("/mnt/one/l");
    EXPECT_EQ(opened_.path, "/mnt/two/made");
    EXPECT_TRUE(two_.exists("/made"));
}

TEST_F(OpenFilesTest, AServerThatTellsNoHandleOfANewFileIsAskedForIt) {
    one_.tells_attributes = false;
    create("/mnt/one/new");
    EXPECT_TRUE(one_.exists("/new"));
}

TEST_F(OpenFilesTest, AFileGoesUpAndComesBackIdentical) {
    for (const std::size_t size : {0UL, 1UL, 511UL, 32768UL, 32769UL, kMiB - 1, 3 * kMiB + 17}) {
        const std::string path = "/mnt/one/f" + std::to_string(size);
        const auto data = pattern(size);
        auto &file = create(path);
        ASSERT_TRUE(write_all(file, data).ok());
        ASSERT_TRUE(file.resize(size).ok());
        ASSERT_TRUE(file.flush().ok());
        EXPECT_TRUE(same(one_.at("/f" + std::to_string(size)).stable, data)) << size;
        std::vector<std::byte> back(size);
        for (uint64_t offset = 0; offset < size; offset += 32768)
            ASSERT_TRUE(
                read(file, offset, std::span(back).subspan(offset, std::min<std::size_t>(32768, size - offset))).ok());
        EXPECT_TRUE(same(back, data)) << size;
    }
}

TEST_F(OpenFilesTest, ASmallFileGoesUpInThreeCalls) {
    create("/mnt/one/first");
    const unsigned before = one_.total_calls();
    EXPECT_EQ(files_.identify("/mnt/one/small").status().number(), uint32_t{ENOENT});
    auto &file = create("/mnt/one/small");
    ASSERT_TRUE(write_all(file, pattern(4096)).ok());
    ASSERT_TRUE(file.resize(4096).ok());
    ASSERT_TRUE(file.flush().ok());
    EXPECT_EQ(one_.total_calls() - before, 3U);  // LOOKUP, CREATE, WRITE
}

TEST_F(OpenFilesTest, MemoryStaysBoundedHoweverMuchIsWritten) {
    const auto piece = pattern(kMiB);
    auto &file = create("/mnt/one/big");
    for (uint64_t i = 0; i < 100; ++i)
        ASSERT_TRUE(file.write(i * kMiB, piece).ok());
    EXPECT_GE(one_.calls[Op::commit], 4U);
    ASSERT_TRUE(file.flush().ok());
    EXPECT_EQ(one_.at("/big").stable.size(), 100 * kMiB);
}

TEST_F(OpenFilesTest, ManyFilesShareTheMemoryForWriting) {
    const auto data = pattern(2 * kMiB);
    std::vector<uint64_t> identifiers;
    for (int i = 0; i < 40; ++i) {
        auto &file = create("/mnt/one/f" + std::to_string(i));
        identifiers.push_back(opened_.identifier);
        ASSERT_TRUE(write_all(file, data, kMiB - 5).ok());
    }
    EXPECT_TRUE(files_.flush_all().ok());
    for (int i = 0; i < 40; ++i)
        EXPECT_TRUE(same(one_.at("/f" + std::to_string(i)).stable, data));
}

TEST_F(OpenFilesTest, AReadSeesWhatWasWrittenAndFlushesItFirst) {
    one_.add_file("/f", pattern(100000));
    auto &file = identify("/mnt/one/f");
    std::vector<std::byte> buffer(1000);
    ASSERT_TRUE(read(file, 0, buffer).ok());
    const auto changed = pattern(500, 9);
    ASSERT_TRUE(file.write(1200, changed).ok());
    ASSERT_TRUE(read(file, 1000, buffer).ok());
    EXPECT_TRUE(same(std::span(buffer).subspan(200, 500), changed));
    EXPECT_FALSE(file.dirty());
}

TEST_F(OpenFilesTest, WritesOverTheSameBytesKeepTheirOrder) {
    auto &file = create("/mnt/one/f");
    for (unsigned round = 1; round <= 5; ++round)
        ASSERT_TRUE(file.write(100 * round, pattern(5000, round)).ok());
    ASSERT_TRUE(file.flush().ok());
    std::vector<std::byte> expected(5500);
    for (unsigned round = 1; round <= 5; ++round) {
        const auto data = pattern(5000, round);
        std::copy(data.begin(), data.end(), expected.begin() + 100 * round);
    }
    EXPECT_TRUE(same(one_.at("/f").stable, expected));
}

TEST_F(OpenFilesTest, TheFirstFailureIsToldOnceByTheFlushAndTheFileIsUsableAfterwards) {
    auto &file = create("/mnt/one/f");
    one_.fail_next(Op::write, ENOSPC);
    ASSERT_TRUE(file.write(0, pattern(100)).ok());
    const Status failure = file.flush();
    EXPECT_EQ(failure.number(), uint32_t{ENOSPC});
    EXPECT_EQ(failure.text(), "/mnt/one/f: server one: planned failure");
    EXPECT_TRUE(file.flush().ok());
    ASSERT_TRUE(file.write(0, pattern(100)).ok());
    EXPECT_TRUE(file.flush().ok());
}

TEST_F(OpenFilesTest, AWriteAfterAFailedOneFailsTooAndLeavesTheFailureForTheFlush) {
    auto &file = create("/mnt/one/f");
    one_.fail_next(Op::write, EDQUOT);
    ASSERT_TRUE(file.write(0, pattern(2 * kMiB)).ok());
    loop_.run_until([&] { return one_.calls[Op::write] >= 2; });
    EXPECT_EQ(file.write(2 * kMiB, pattern(10)).number(), uint32_t{EDQUOT});
    EXPECT_EQ(file.flush().number(), uint32_t{EDQUOT});
}

TEST_F(OpenFilesTest, ResizingBringsAcceptedWritesToStableStorageFirst) {
    auto &file = create("/mnt/one/f");
    ASSERT_TRUE(file.write(0, pattern(1000)).ok());
    one_.log.clear();
    ASSERT_TRUE(file.resize(600).ok());
    EXPECT_THAT(one_.log, ::testing::ElementsAre("WRITE 0+1000 stable", "SETATTR size 600"));
}

TEST_F(OpenFilesTest, ResizingToTheSizeThatTheWritesShowedCostsNoCall) {
    const auto data = pattern(5 * kMiB + 7);
    auto &file = create("/mnt/one/f");
    ASSERT_TRUE(write_all(file, data).ok());
    ASSERT_TRUE(file.resize(data.size()).ok());
    EXPECT_EQ(one_.calls[Op::setattr], 0U);
    std::vector<std::byte> back(data.size());
    ASSERT_TRUE(read(file, 0, back).ok());
    EXPECT_TRUE(same(back, data));
}

TEST_F(OpenFilesTest, AFileThatIsMadeWithItsContentCostsOneCall) {
    one_.takes_content = true;
    const auto content = pattern(1000);
    auto &file = create("/mnt/one/f", content);
    EXPECT_EQ(opened_.size, 1000U);
    EXPECT_EQ(one_.at("/f").data, content);
    EXPECT_FALSE(file.dirty());
    ASSERT_TRUE(file.resize(1000).ok());
    ASSERT_TRUE(file.flush().ok());
    EXPECT_EQ(one_.calls[Op::write] + one_.calls[Op::setattr] + one_.calls[Op::commit], 0U);
    std::vector<std::byte> back(1000);
    ASSERT_TRUE(read(file, 0, back).ok());
    EXPECT_EQ(back, content);
}

TEST_F(OpenFilesTest, ContentThatIsNotTakenWithTheFileIsWrittenToIt) {
    for (const bool kept_open : {false, true}) {
        one_.keeps_made_open = kept_open;
        const std::string name = kept_open ? "/open" : "/f";
        const auto content = pattern(1000);
        auto &file = create("/mnt/one" + name, content);
        EXPECT_EQ(opened_.size, 0U);
        EXPECT_TRUE(file.dirty());
        one_.log.clear();
        ASSERT_TRUE(file.resize(1000).ok());
        EXPECT_THAT(one_.log, ::testing::ElementsAre("WRITE 0+1000 stable"));
        EXPECT_EQ(one_.at(name).data, content);
    }
}

TEST_F(OpenFilesTest, ContentThatCannotBeWrittenIsToldWhenItIsToBeOnStableStorage) {
    one_.fail_next(Op::write, ENOSPC);
    auto &file = create("/mnt/one/f", pattern(1000));
    EXPECT_EQ(file.flush().number(), uint32_t{ENOSPC});
}

TEST_F(OpenFilesTest, AFileThatIsThereAlreadyIsEmptiedAndThenGivenItsContent) {
    one_.takes_content = true;
    one_.add_file("/f", pattern(5000));
    const auto content = pattern(1000, 3);
    auto &file = create("/mnt/one/f", content);
    ASSERT_TRUE(file.flush().ok());
    EXPECT_EQ(one_.at("/f").data, content);
    EXPECT_EQ(one_.calls[Op::write], 1U);
}

// Somebody else made it between the lookup and the CREATE.
TEST_F(OpenFilesTest, NothingShowsBehindTheContentOfAFileThatSomebodyMadeMeanwhile) {
    one_.takes_content = true;
    EXPECT_FALSE(files_.identify("/mnt/one/f").ok());
    one_.add_file("/f", pattern(5000));
    const auto content = pattern(1000, 3);
    auto &file = create("/mnt/one/f", content);
    ASSERT_TRUE(file.resize(1000).ok());
    EXPECT_EQ(one_.at("/f").data, content);
}

TEST_F(OpenFilesTest, AFileThatIsMadeWithItsContentIsLookedUpWhereTheServerDoesNotTellItsHandle) {
    one_.takes_content = true;
    one_.tells_attributes = false;
    const auto content = pattern(1000);
    auto &file = create("/mnt/one/f", content);
    ASSERT_TRUE(file.resize(1000).ok());
    EXPECT_EQ(one_.at("/f").data, content);
    EXPECT_EQ(one_.calls[Op::write], 0U);
}

TEST_F(OpenFilesTest, ALongerFileThatIsWrittenOverIsCut) {
    one_.add_file("/f", pattern(5000));
    auto &file = identify("/mnt/one/f");
    ASSERT_TRUE(file.write(0, pattern(1000, 3)).ok());
    ASSERT_TRUE(file.resize(1000).ok());
    EXPECT_EQ(one_.at("/f").data, pattern(1000, 3));
}

TEST_F(OpenFilesTest, AFileThatWasCutIsResizedAgainThoughItsWritesOnceShowedThisSize) {
    auto &file = create("/mnt/one/f");
    ASSERT_TRUE(file.write(0, pattern(1000)).ok());
    ASSERT_TRUE(file.resize(1000).ok());
    ASSERT_TRUE(file.resize(400).ok());
    ASSERT_TRUE(file.resize(1000).ok());
    EXPECT_EQ(one_.at("/f").data.size(), 1000U);
}

TEST_F(OpenFilesTest, AServerThatTellsNoSizeWithAWriteIsToldTheSize) {
    auto &file = create("/mnt/one/f");
    one_.tells_attributes = false;
    ASSERT_TRUE(file.write(0, pattern(1000)).ok());
    ASSERT_TRUE(file.resize(1000).ok());
    EXPECT_EQ(one_.calls[Op::setattr], 1U);
}

TEST_F(OpenFilesTest, ASizeThatDoesNotReachToTheEndOfWhatWasWrittenIsNotBelieved) {
    auto &file = create("/mnt/one/f");
    one_.write_size_told = 1000;
    ASSERT_TRUE(file.write(0, pattern(2 * kMiB)).ok());
    ASSERT_TRUE(file.resize(1000).ok());
    EXPECT_EQ(one_.at("/f").data.size(), 1000U);
}

TEST_F(OpenFilesTest, AResizeAfterAFailedWriteIsNotDone) {
    auto &file = create("/mnt/one/f");
    one_.fail_next(Op::write, EIO);
    ASSERT_TRUE(file.write(0, pattern(1000)).ok());
    EXPECT_EQ(file.resize(600).number(), uint32_t{EIO});
    EXPECT_EQ(one_.calls[Op::setattr], 0U);
}

TEST_F(OpenFilesTest, AReadBeyondTheNewEndOfAShrunkFileGivesZeros) {
    one_.add_file("/f", pattern(50000));
    auto &file = identify("/mnt/one/f");
    std::vector<std::byte> buffer(1000);
    ASSERT_TRUE(read(file, 0, buffer).ok());
    ASSERT_TRUE(file.resize(1500).ok());
    ASSERT_TRUE(read(file, 1000, buffer).ok());
    EXPECT_TRUE(same(std::span(buffer).first(500), std::span(one_.at("/f").data).subspan(1000)));
    EXPECT_TRUE(same(std::span(buffer).subspan(500), std::vector<std::byte>(500)));
}

TEST_F(OpenFilesTest, ClosingTellsTheFailureOfWritesAndClosesAllTheSame) {
    auto &file = create("/mnt/one/f");
    one_.fail_next(Op::write, EROFS);
    ASSERT_TRUE(file.write(0, pattern(10)).ok());
    EXPECT_EQ(files_.close(opened_.identifier).number(), uint32_t{EROFS});
    EXPECT_EQ(files_.size(), 0U);
}

TEST_F(OpenFilesTest, FlushingAllFlushesAllAndTellsTheFirstFailure) {
    auto &bad = create("/mnt/one/bad");
    auto &good = create("/mnt/two/good");
    ASSERT_TRUE(bad.write(0, pattern(10)).ok());
    ASSERT_TRUE(good.write(0, pattern(10)).ok());
    one_.fail_next(Op::write, ENOSPC);
    EXPECT_EQ(files_.flush_all().number(), uint32_t{ENOSPC});
    EXPECT_EQ(two_.at("/good").stable.size(), 10U);
}

// Moves files one after the other and leaves each of them open, as a tree that is moved does. Gives how many files were
// visited to bring what was written to stable storage.
std::size_t OpenFilesTest::move_many(const std::string &folder, std::size_t count) {
    one_.add_directory("/" + folder);
    PathOperations paths(mounts_, 0755);
    std::size_t visited = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string name = folder + "/f" + std::to_string(i);
        one_.add_file("/" + name);
        identify("/mnt/one/" + name);
        EXPECT_TRUE(create("/mnt/two/" + folder + std::to_string(i)).write(0, pattern(1)).ok());
        const auto flushed = [&](const Place &) {
            visited += files_.unwritten();
            return files_.flush_all();
        };
        EXPECT_TRUE(paths.remove("/mnt/one/" + name, flushed).ok());
    }
    return visited;
}

TEST_F(OpenFilesTest, OnlyFilesThatWereWrittenToAreVisitedHoweverManyAreOpen) {
    const std::size_t few = move_many("few", 200);
    const std::size_t many = move_many("many", 1600);
    EXPECT_GE(few, 200U);
    EXPECT_LE(many, few * 17 / 2);
    EXPECT_EQ(files_.size(), 2 * 1800U);
}

TEST_F(OpenFilesTest, AFileThatWasOnlyIdentifiedTakesLessThanTwoHundredBytes) {
    constexpr std::size_t kFiles = 4000;
    one_.add_directory("/d");
    for (std::size_t i = 0; i < kFiles; ++i)
        one_.add_file("/d/file" + std::to_string(i));
    const auto for_all = [this](const auto &use) {
        for (std::size_t i = 0; i < kFiles; ++i)
            use("/mnt/one/d/file" + std::to_string(i));
        mounts_.forget_handles();  // whose cache is bounded by itself
    };
    for_all([this](const std::string &path) { EXPECT_TRUE(walk_path(mounts_, path, LastLink::keep).ok()); });
    const std::size_t before = allocated_bytes();
    for_all([this](const std::string &path) { identify(path); });
    const std::size_t taken = allocated_bytes() - before;
    EXPECT_EQ(files_.size(), kFiles);
    EXPECT_LT(taken, 200 * kFiles);
    EXPECT_GT(taken, 0U);
}

TEST_F(OpenFilesTest, AFileThatIsAboutToGoKeepsNoWindows) {
    one_.add_file("/f", pattern(100000));
    auto &file = identify("/mnt/one/f");
    std::vector<std::byte> buffer(1000);
    ASSERT_TRUE(read(file, 0, buffer).ok());
    ASSERT_TRUE(file.reads_ahead());
    const auto place = walk_path(mounts_, "/mnt/one/f", LastLink::keep);
    ASSERT_TRUE(place.ok());
    const std::size_t before = allocated_bytes();
    files_.rest(place.value());
    EXPECT_FALSE(file.reads_ahead());
    EXPECT_LT(allocated_bytes() + 1000, before);
}

TEST_F(OpenFilesTest, AFileThatRestsKeepsNoWindowsAndGoesOnWhenItIsUsedAgain) {
    auto &file = create("/mnt/one/f");
    ASSERT_TRUE(file.write(0, pattern(1000)).ok());
    file.rest();
    EXPECT_TRUE(file.dirty());
    ASSERT_TRUE(file.flush().ok());
    const std::size_t before = allocated_bytes();
    file.rest();
    EXPECT_LT(allocated_bytes() + 1000, before);
    std::vector<std::byte> buffer(1000);
    file.set_known_size(1000);
    ASSERT_TRUE(read(file, 0, buffer).ok());
    EXPECT_EQ(buffer, pattern(1000));
    ASSERT_TRUE(file.write(1000, pattern(500)).ok());
    ASSERT_TRUE(file.flush().ok());
    EXPECT_EQ(one_.at("/f").stable.size(), 1500U);
}

TEST_F(OpenFilesTest, AStaleHandleIsLookedUpAgainWhileReading) {
    const auto data = pattern(5 * kMiB);
    one_.add_file("/f", data);
    auto &file = identify("/mnt/one/f");
    std::vector<std::byte> back(data.size());
    for (uint64_t offset = 0; offset < data.size(); offset += 64 << 10) {
        if (offset == 2 * kMiB) one_.failures[Op::read] = {ESTALE};
        ASSERT_TRUE(read(file, offset, std::span(back).subspan(offset, 64 << 10)).ok());
    }
    EXPECT_TRUE(same(back, data));
}

TEST_F(OpenFilesTest, AStaleHandleIsLookedUpAgainWhileWritingAndNothingIsLost) {
    const auto data = pattern(5 * kMiB + 3);
    auto &file = create("/mnt/one/f");
    for (uint64_t offset = 0; offset < data.size(); offset += kMiB) {
        if (offset == 2 * kMiB) one_.failures[Op::write] = {ESTALE};
        const auto part = std::span(data).subspan(offset, std::min<std::size_t>(kMiB, data.size() - offset));
        ASSERT_TRUE(file.write(offset, part).ok());
        loop_.poll_once();
    }
    ASSERT_TRUE(file.flush().ok());
    EXPECT_TRUE(same(one_.at("/f").stable, data));
}

TEST_F(OpenFilesTest, AnotherFileOfTheSameNameIsNotTakenForTheOneThatWasOpened) {
    one_.add_file("/f", pattern(100));
    auto &file = identify("/mnt/one/f");
    one_.remove_child(1, "f");
    one_.add_file("/f", pattern(100, 5));
    one_.make_handles_stale();
    std::vector<std::byte> buffer(100);
    EXPECT_EQ(read(file, 0, buffer).number(), uint32_t{ESTALE});
}

TEST_F(OpenFilesTest, AFileThatGotTheFileIdOfTheOneThatWasOpenedIsNotReadInItsPlace) {
    const uint64_t first = one_.add_file("/f", pattern(100));
    auto &file = identify("/mnt/one/f");
    one_.remove_child(1, "f");
    one_.add_file("/f", pattern(100, 5));
    one_.at("/f").attributes.fileid = first;
    one_.make_handles_stale();
    std::vector<std::byte> buffer(100);
    EXPECT_EQ(read(file, 0, buffer).number(), uint32_t{ESTALE});
}

TEST_F(OpenFilesTest, NothingIsWrittenToAFileThatGotTheFileIdOfTheOneThatWasOpened) {
    auto &file = create("/mnt/one/f");
    const uint64_t first = one_.find("/f");
    ASSERT_TRUE(file.write(0, pattern(3 * kMiB)).ok());
    one_.remove_child(1, "f");
    one_.add_file("/f");
    one_.at("/f").attributes.fileid = first;
    one_.make_handles_stale();
    EXPECT_EQ(file.flush().number(), uint32_t{ESTALE});
    EXPECT_TRUE(one_.at("/f").data.empty());
}

TEST_F(OpenFilesTest, AHandleThatIsGoodAgainIsUsedAgain) {
    const auto data = pattern(100);
    one_.add_file("/f", data);
    auto &file = identify("/mnt/one/f");
    one_.failures[Op::read] = {ESTALE};
    std::vector<std::byte> buffer(100);
    EXPECT_TRUE(read(file, 0, buffer).ok());
    EXPECT_EQ(buffer, data);
    one_.failures[Op::write] = {ESTALE};
    ASSERT_TRUE(file.write(0, pattern(100, 5)).ok());
    EXPECT_TRUE(file.flush().ok());
    EXPECT_EQ(one_.at("/f").data, pattern(100, 5));
}

TEST_F(OpenFilesTest, AHandleThatStaysStaleIsAnErrorAfterOneMoreTry) {
    one_.add_file("/f", pattern(100));
    auto &file = identify("/mnt/one/f");
    one_.failures[Op::read] = {ESTALE, ESTALE, ESTALE};
    std::vector<std::byte> buffer(100);
    EXPECT_EQ(read(file, 0, buffer).number(), uint32_t{ESTALE});
    one_.failures[Op::write] = {ESTALE, ESTALE, ESTALE};
    ASSERT_TRUE(file.write(0, buffer).ok());
    EXPECT_EQ(file.flush().number(), uint32_t{ESTALE});
}

TEST_F(OpenFilesTest, AWindowLeftFullGivesItsMemoryToAnotherFilesReads) {
    const auto data = pattern(20 * kMiB);
    one_.add_file("/a", data);
    one_.add_file("/b", data);
    std::vector<std::byte> buffer(kMiB);
    auto &first = identify("/mnt/one/a");
    for (uint64_t i = 0; i < 3; ++i)
        ASSERT_TRUE(read(first, i * kMiB, buffer).ok());
    auto &second = identify("/mnt/one/b");
    files_.make_room_to_read(second);
    ASSERT_TRUE(read(second, 0, buffer).ok());
    EXPECT_TRUE(second.reads_ahead());
    EXPECT_TRUE(same(buffer, std::span(data).first(kMiB)));
}

}  // namespace
}  // namespace nfstdm::test
