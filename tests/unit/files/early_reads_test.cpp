// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/early_reads.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>

#include "nfstdm/files/open_files.h"
#include "tests/unit/files/fixture.h"

namespace nfstdm::test {
namespace {

constexpr std::size_t kSmall = 4096;

class EarlyReadsTest : public MountedTest {
  protected:
    // Files of which everything is known that a listing tells.
    std::string add_known(const std::string &name, std::size_t size = kSmall) {
        one_.add_file("/" + name, pattern(size, static_cast<unsigned>(name.back())));
        return known("/mnt/one/" + name);
    }
    OpenFile &identify(const std::string &path) {
        const auto file = files_.identify(path);
        EXPECT_TRUE(file.ok()) << file.status().text();
        return *files_.find(file.value()->identifier);
    }
    static Status read(OpenFile &file, uint64_t offset, std::span<std::byte> buffer) {
        std::optional<Status> result;
        file.read(offset, buffer, [&result](Status status) { result = std::move(status); });
        while (!result) {
            file.mount().loop().run_until([&] { return result || file.needs_recovery(); });
            file.recover();
        }
        return *result;
    }
    // What there is of the file at the path, and of bytes behind its end.
    std::vector<std::byte> content(const std::string &path, std::size_t size = kSmall) {
        std::vector<std::byte> bytes(size, std::byte{0xee});
        EXPECT_TRUE(read(identify(path), 0, bytes).ok());
        return bytes;
    }
    const std::vector<std::byte> &data(const std::string &path) { return one_.at(path.substr(8)).data; }
    unsigned reads() { return one_.calls[Op::read]; }

    OpenFiles files_{mounts_, 0640};
};

TEST_F(EarlyReadsTest, FilesThatAreExpectedAreAskedForWithTheFirst) {
    const std::vector<std::string> paths{add_known("a"), add_known("b", 1), add_known("c", EarlyReads::kFileMaximum)};
    for (const auto &path : paths)
        files_.expect_content(path);
    for (const auto &path : paths) {
        EXPECT_EQ(content(path, data(path).size()), data(path));
        EXPECT_EQ(reads(), 3U);
    }
}

TEST_F(EarlyReadsTest, OneThatIsOpenedBeforeItHasComeIsWaitedFor) {
    const auto path = add_known("a");
    volumes_["one"]->held = true;
    files_.expect_content(path);
    OpenFile &file = identify(path);
    std::vector<std::byte> bytes(kSmall);
    std::optional<Status> result;
    file.read(0, bytes, [&result](Status status) { result = std::move(status); });
    EXPECT_FALSE(result);
    EXPECT_EQ(volumes_["one"]->waiting_for(Op::read), 1U);
    volumes_["one"]->answer_all();
    ASSERT_TRUE(result && result->ok());
    EXPECT_EQ(bytes, data(path));
}

TEST_F(EarlyReadsTest, IsLentWhereItLies) {
    const auto path = add_known("a");
    files_.expect_content(path);
    const auto lent = identify(path).lend(0, 1 << 20);
    ASSERT_EQ(lent.size(), kSmall);
    EXPECT_EQ(std::memcmp(lent.data(), data(path).data(), kSmall), 0);
    EXPECT_EQ(reads(), 1U);
}

TEST_F(EarlyReadsTest, OnlySmallFilesAreThatAreKnown) {
    one_.add_file("/unknown", pattern(10));
    one_.add_directory("/directory");
    one_.add_link("/link", "a");
    one_.add_file("/directory/below", pattern(10));
    add_known("a");
    for (const auto &path :
         {add_known("empty", 0), add_known("large", EarlyReads::kFileMaximum + 1), known("/mnt/one/directory"),
          known("/mnt/one/link"), std::string("/mnt/one/unknown"), std::string("/mnt/one/a/below"),
          std::string("/mnt/one/directory/below"), std::string("/mnt/one"), std::string("/mnt/two/a"),
          std::string("/local"), std::string("relative")})
        files_.expect_content(path);
    loop_.poll_once();
    EXPECT_EQ(reads(), 0U);
    EXPECT_EQ(two_.total_calls(), 0U);
}

TEST_F(EarlyReadsTest, AFileThatOneReadDoesNotBringIsLeftAlone) {
    one_.limits.read_maximum = kSmall;
    const auto path = add_known("a", kSmall);
    files_.expect_content(path);
    loop_.poll_once();
    EXPECT_EQ(reads(), 0U);
    EXPECT_EQ(content(path), data(path));
}

TEST_F(EarlyReadsTest, AFileThatIsKnownToHaveChangedSinceIsReadAgain) {
    const auto path = add_known("a");
    files_.expect_content(path);
    loop_.poll_once();
    one_.at("/a").data = pattern(kSmall, 99);
    one_.at("/a").attributes.modification.seconds += 1;
    now_ += std::chrono::seconds(6);
    EXPECT_EQ(content(path), data(path));
    EXPECT_EQ(reads(), 2U);
}

TEST_F(EarlyReadsTest, IsForgottenWhenEverythingIsToBeAskedAnew) {
    const auto path = add_known("a");
    files_.expect_content(path);
    loop_.poll_once();
    one_.at("/a").data = pattern(kSmall, 99);
    files_.forget_expected();
    EXPECT_EQ(content(path), data(path));
    EXPECT_EQ(reads(), 2U);
}

TEST_F(EarlyReadsTest, WhatWasWrittenMeanwhileIsRead) {
    const auto path = add_known("a");
    volumes_["one"]->held = true;
    files_.expect_content(path);
    OpenFile &file = identify(path);
    volumes_["one"]->answer_all();
    volumes_["one"]->held = false;
    const auto written = pattern(kSmall, 77);
    ASSERT_TRUE(file.write(0, written).ok());
    std::vector<std::byte> bytes(kSmall);
    ASSERT_TRUE(read(file, 0, bytes).ok());
    EXPECT_EQ(bytes, written);
}

TEST_F(EarlyReadsTest, WhatWasMadeAnewMeanwhileIsRead) {
    const auto path = add_known("a");
    files_.expect_content(path);
    loop_.poll_once();
    const auto made = files_.create(path);
    ASSERT_TRUE(made.ok());
    const auto written = pattern(kSmall, 77);
    ASSERT_TRUE(files_.find(made.value()->identifier)->write(0, written).ok());
    ASSERT_TRUE(files_.close(made.value()->identifier).ok());
    EXPECT_EQ(content(path), written);
}

TEST_F(EarlyReadsTest, AFailureIsThatOfTheFile) {
    const auto first = add_known("a");
    const auto second = add_known("b");
    one_.fail_next(Op::read, EIO);
    for (const auto &path : {first, second})
        files_.expect_content(path);
    std::vector<std::byte> bytes(kSmall);
    EXPECT_EQ(read(identify(first), 0, bytes).number(), uint32_t{EIO});
    EXPECT_EQ(content(second), data(second));
    EXPECT_EQ(reads(), 2U);
    EXPECT_EQ(content(first), data(first)) << "asking again reads again";
}

TEST_F(EarlyReadsTest, AShortAnswerIsReadOn) {
    one_.read_at_most = kSmall / 3;
    const auto path = add_known("a");
    files_.expect_content(path);
    EXPECT_EQ(content(path), data(path));
}

TEST_F(EarlyReadsTest, AFileThatHasShrunkUnseenIsNoFileOfZeros) {
    const auto path = add_known("a");
    one_.at("/a").data.resize(kSmall / 2);
    files_.expect_content(path);
    std::vector<std::byte> bytes(kSmall);
    EXPECT_EQ(read(identify(path), 0, bytes).number(), uint32_t{EIO});
}

TEST_F(EarlyReadsTest, AStaleHandleIsLookedUpAgain) {
    const auto path = add_known("a");
    files_.expect_content(path);
    one_.fail_next(Op::read, ESTALE);
    EXPECT_EQ(content(path), data(path));
}

TEST_F(EarlyReadsTest, TheOldestGivesWayToMoreThanAreKept) {
    std::vector<std::string> paths;
    for (std::size_t i = 0; i <= EarlyReads::kFilesMaximum; ++i)
        paths.push_back(add_known("f" + std::to_string(i)));
    for (const auto &path : paths)
        files_.expect_content(path);
    for (const auto &path : paths)
        EXPECT_EQ(content(path), data(path));
    EXPECT_EQ(reads(), paths.size() + 1);
}

TEST_F(EarlyReadsTest, WhatNobodyUsesIsNoHarm) {
    const auto path = add_known("a");
    volumes_["one"]->held = true;
    files_.expect_content(path);
    EXPECT_EQ(volumes_["one"]->waiting_for(Op::read), 1U);
    {
        OpenFiles others(mounts_, 0640);
        others.expect_content(add_known("b"));
        EXPECT_TRUE(others.identify("/mnt/one/b").ok());
    }
    volumes_["one"]->answer_all();
}

}  // namespace
}  // namespace nfstdm::test
