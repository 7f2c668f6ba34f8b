// SPDX-License-Identifier: Apache-2.0
// Files that are made together with what they hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "nfstdm/nfs4/constants.h"
#include "tests/unit/nfs4/volume_fixture.h"

namespace nfstdm::nfs4 {
namespace {

constexpr const char *kInOneQuestion = "SEQUENCE PUTFH OPEN GETFH WRITE GETATTR CLOSE PUTFH GETATTR";
constexpr const char *kWithoutContent = "SEQUENCE PUTFH OPEN GETFH GETATTR PUTFH GETATTR";

class CreateWithContentTest : public test::Nfs4VolumeTest {
  protected:
    CreateWithContentTest() {
        open();
        EXPECT_TRUE(attach().ok());
    }
    Result<CreatedFile> create(std::string_view content) {
        return get<CreatedFile>([&, this](auto done) {
            volume->create_with(root, "file", {0644, {}}, std::as_bytes(std::span{content}), std::move(done));
        });
    }
    // Writes through the file that was given, and lets go of it.
    Status write(CreatedFile made, std::string_view text) {
        const auto reply = get<WriteReply>([&](auto done) {
            made.file->write(0, std::as_bytes(std::span{text}), Stability::unstable, std::move(done));
        });
        made.file.reset();
        return detach().ok() ? reply.status() : Status{EIO, "not detached"};
    }
};

TEST_F(CreateWithContentTest, TakesOneQuestionAndLeavesNothingOpen) {
    const auto made = create("holds this");
    ASSERT_TRUE(made.ok()) << made.status().text();
    EXPECT_TRUE(made.value().has_content);
    EXPECT_TRUE(made.value().reply.handle && made.value().reply.attributes && made.value().reply.directory.after);
    EXPECT_EQ(nfs.compounds().back(), kInOneQuestion);
    EXPECT_TRUE(nfs.asked_to_be_kept.back());
    EXPECT_EQ(nfs.content, "holds this");
    EXPECT_EQ(nfs.open_files(), 0U);
}

TEST_F(CreateWithContentTest, IsOpenedAgainWhenMoreIsWritten) {
    auto made = create("holds this");
    ASSERT_TRUE(made.ok());
    EXPECT_TRUE(write(std::move(made.value()), "HOLDS").ok());
    EXPECT_EQ(nfs.content, "HOLDS this");
    EXPECT_EQ(nfs.executed(Op::open), 2);
    EXPECT_EQ(nfs.open_files(), 0U);
}

TEST_F(CreateWithContentTest, IsMadeWithoutItWhereTheServerDoesNotTakeIt) {
    for (const auto refusal : {NfsStatus::nospc, NfsStatus::delay, NfsStatus::io}) {
        nfs.fail(Op::write, refusal);
        const int opened = nfs.executed(Op::open);
        const auto made = create("holds this");
        ASSERT_TRUE(made.ok()) << made.status().text();
        EXPECT_FALSE(made.value().has_content);
        EXPECT_TRUE(made.value().reply.handle);
        EXPECT_EQ(nfs.executed(Op::open), opened + 1);
        EXPECT_EQ(nfs.open_files(), 1U);
    }
}

TEST_F(CreateWithContentTest, IsWrittenAsItWasOpenedWhereTheServerDidNotTakeIt) {
    nfs.fail(Op::write, NfsStatus::nospc);
    auto made = create("holds this");
    ASSERT_TRUE(made.ok());
    EXPECT_TRUE(write(std::move(made.value()), "HOLDS").ok());
    EXPECT_EQ(nfs.executed(Op::open), 1);
    EXPECT_EQ(nfs.open_files(), 0U);
}

TEST_F(CreateWithContentTest, HasItWhenItIsNotClosedAndIsClosedLater) {
    nfs.fail(Op::close, NfsStatus::io);
    auto made = create("holds this");
    ASSERT_TRUE(made.ok());
    EXPECT_TRUE(made.value().has_content);
    EXPECT_EQ(nfs.open_files(), 1U);
    made.value().file.reset();
    EXPECT_TRUE(detach().ok());
    EXPECT_EQ(nfs.open_files(), 0U);
}

TEST_F(CreateWithContentTest, FailsWhereTheFileCannotBeMade) {
    nfs.fail(Op::open, NfsStatus::access);
    EXPECT_EQ(create("holds this").status().number(), static_cast<uint32_t>(EACCES));
    EXPECT_EQ(nfs.executed(Op::write), 0);
}

TEST_F(CreateWithContentTest, IsExecutedOnceWhenTheAnswerIsLost) {
    nfs.lose_answers(Op::write, 2);
    const auto made = create("holds this");
    ASSERT_TRUE(made.ok()) << made.status().text();
    EXPECT_TRUE(made.value().has_content);
    EXPECT_EQ(nfs.executed(Op::open), 1);
    EXPECT_EQ(nfs.executed(Op::write), 1);
}

TEST_F(CreateWithContentTest, IsMadeAgainWhenTheServerRestartsInBetween) {
    nfs.forget_sessions();
    const auto made = create("holds this");
    ASSERT_TRUE(made.ok()) << made.status().text();
    EXPECT_TRUE(made.value().has_content);
    nfs.restart();
    EXPECT_TRUE(create("and this").ok());
    EXPECT_EQ(nfs.content, "and thisis");
    EXPECT_EQ(nfs.open_files(), 0U);
}

TEST_F(CreateWithContentTest, LeavesOutTheModeWhereTheServerHasNone) {
    nfs.lacking = {Attribute::mode};
    const auto made = create("holds this");
    ASSERT_TRUE(made.ok()) << made.status().text();
    EXPECT_TRUE(made.value().has_content);
}

TEST_F(CreateWithContentTest, IsLeftToTheCallerWhereItIsTooMuchForARequest) {
    const auto made = create(std::string((64 << 10) + 1, 'x'));
    ASSERT_TRUE(made.ok());
    EXPECT_FALSE(made.value().has_content);
    EXPECT_EQ(nfs.compounds().back(), kWithoutContent);
}

TEST(CreateWithContentOfSmallSessions, IsLeftToTheCaller) {
    struct Small : test::Nfs4VolumeTest {
        void TestBody() override {}
        std::string asked(uint32_t operations, uint32_t bytes) {
            nfs.operations = operations;
            nfs.channel_bytes = bytes;
            open();
            EXPECT_TRUE(attach().ok());
            const std::string content(2000, 'x');
            const auto made = get<CreatedFile>([&, this](auto done) {
                volume->create_with(root, "file", {}, std::as_bytes(std::span{content}), std::move(done));
            });
            EXPECT_TRUE(made.ok());
            return nfs.compounds().back();
        }
    };
    EXPECT_EQ(Small().asked(9, 1 << 20), kWithoutContent);
    EXPECT_EQ(Small().asked(10, 1 << 20), kInOneQuestion);
    EXPECT_EQ(Small().asked(10, 4096), kWithoutContent);
}

}  // namespace
}  // namespace nfstdm::nfs4
