// SPDX-License-Identifier: Apache-2.0
// READ, WRITE, COMMIT and what becomes of unstable data.
#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;

constexpr uint32_t kUnstable = 0;
constexpr uint32_t kFileSync = 2;

class NfsIoTest : public InMemory {
  protected:
    void SetUp() override { start(); }
};

class HoldUnstableTest : public InMemory {
  protected:
    void SetUp() override {
        start({.hold_unstable = true});
        file_ = create(root(), "f");
    }

    Handle file_;
};

TEST_F(NfsIoTest, WhatIsWrittenIsReadBack) {
    const Handle file = create(root(), "f");
    write_verifier(file, 0, "hello", kUnstable);
    write_verifier(file, 7, "there", kFileSync);
    EXPECT_EQ(read(file, 0, 100), std::string("hello\0\0there", 12));
    EXPECT_EQ(file_content("f"), std::string("hello\0\0there", 12));
}

TEST_F(NfsIoTest, AReadTellsTheEndOfTheFile) {
    put_file("f", "0123456789");
    const Handle file = lookup(root(), "f");
    const auto read_end = [&](uint64_t offset, uint32_t count) {
        auto reply = nfs(Procedure::read, [&](Writer &out) {
            out.put_opaque(file);
            out.put_u64(offset);
            out.put_u32(count);
        });
        EXPECT_EQ(reply.status(), NfsStatus::ok);
        EXPECT_EQ(get_post_op(reply)->size, 10U);
        const uint32_t got = reply.word();
        const uint32_t eof = reply.word();
        EXPECT_EQ(reply.text().size(), got);
        EXPECT_TRUE(reply.results.finished());
        return std::pair(got, eof);
    };
    EXPECT_EQ(read_end(0, 9), std::pair(9U, 0U));
    EXPECT_EQ(read_end(0, 10), std::pair(10U, 1U));
    EXPECT_EQ(read_end(5, 10), std::pair(5U, 1U));
    EXPECT_EQ(read_end(10, 10), std::pair(0U, 1U));
    EXPECT_EQ(read_end(~uint64_t{0}, ~uint32_t{0}), std::pair(0U, 1U));
    EXPECT_EQ(read_end(3, 0), std::pair(0U, 0U));
}

TEST_F(NfsIoTest, TransfersAreCutToTheServersLimits) {
    start({.max_read = 1024, .max_write = 512});
    const Handle file = create(root(), "f");
    auto reply = write(file, 0, std::string(4096, 'x'));
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    get_wcc(reply);
    EXPECT_EQ(reply.word(), 512U);
    put_file("f", std::string(4096, 'y'));
    EXPECT_EQ(read(file, 0, 4096).size(), 1024U);
}

TEST_F(NfsIoTest, OnlyRegularFilesAreReadAndWritten) {
    const Handle directory = mkdir(root(), "d");
    EXPECT_EQ(write(directory, 0, "x").status(), NfsStatus::isdir);
    EXPECT_EQ(write(Handle(32), 0, "x").status(), NfsStatus::badhandle);
}

TEST_F(NfsIoTest, AWriteBeyondTheLargestOffsetIsTooBig) {
    const Handle file = create(root(), "f");
    EXPECT_EQ(write(file, uint64_t{1} << 63, "x").status(), NfsStatus::fbig);
    EXPECT_EQ(write(file, ~uint64_t{0}, "x").status(), NfsStatus::fbig);
}

TEST_F(NfsIoTest, AWriteTellsTheSizeBeforeAndAfter) {
    const Handle file = create(root(), "f");
    write_verifier(file, 0, "12345");
    auto before = write(file, 5, "678");
    before.status();
    EXPECT_EQ(get_wcc_size_before(before), 5U);
    auto after = write(file, 8, "9");
    after.status();
    EXPECT_EQ(get_wcc(after)->size, 9U);
}

TEST_F(NfsIoTest, AFileMadeWithoutWritePermissionIsWrittenByItsMaker) {
    auto reply = nfs(Procedure::create, [&](Writer &out) {
        out.put_opaque(root());
        out.put_string("f");
        out.put_u32(1);
        put_mode(out, 0400);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    reply.word();
    write_verifier(reply.handle(), 0, "data");
    EXPECT_EQ(file_content("f"), "data");
}

TEST_F(NfsIoTest, TheVerifierIsTheSameUntilTheServerForgets) {
    const Handle file = create(root(), "f");
    const uint64_t verifier = write_verifier(file, 0, "a");
    EXPECT_EQ(write_verifier(file, 1, "b", kFileSync), verifier);
    EXPECT_EQ(commit(file), verifier);
    backend_->files->forget_unstable();
    EXPECT_NE(commit(file), verifier);
    const uint64_t forgotten = commit(file);
    start();
    EXPECT_NE(commit(file), forgotten);
}

TEST_F(HoldUnstableTest, UnstableDataIsSeenThroughTheServerOnly) {
    write_verifier(file_, 3, "abc");
    EXPECT_EQ(file_content("f"), "");
    EXPECT_EQ(read(file_, 0, 100), std::string("\0\0\0abc", 6));
    EXPECT_EQ(read(file_, 4, 1), "b");
    EXPECT_EQ(getattr(file_).size, 6U);
}

TEST_F(HoldUnstableTest, CommitStoresIt) {
    const uint64_t verifier = write_verifier(file_, 0, "abc");
    EXPECT_EQ(commit(file_), verifier);
    EXPECT_EQ(file_content("f"), "abc");
    EXPECT_EQ(backend_->files->unstable_bytes(), 0U);
}

TEST_F(HoldUnstableTest, ForgettingLosesItAndChangesTheVerifier) {
    write_verifier(file_, 0, "safe", kFileSync);
    const uint64_t verifier = write_verifier(file_, 2, "lost");
    backend_->files->forget_unstable();
    EXPECT_EQ(read(file_, 0, 100), "safe");
    EXPECT_EQ(getattr(file_).size, 4U);
    EXPECT_NE(commit(file_), verifier);
    EXPECT_EQ(file_content("f"), "safe");
}

TEST_F(HoldUnstableTest, AServerThatDiesLosesIt) {
    write_verifier(file_, 0, "lost");
    start({.hold_unstable = true});
    EXPECT_EQ(getattr(file_).size, 0U);
}

TEST_F(HoldUnstableTest, AServerThatEndsCleanlyStoresIt) {
    write_verifier(file_, 0, "kept");
    backend_->files->store_unstable();
    EXPECT_EQ(file_content("f"), "kept");
}

TEST_F(HoldUnstableTest, AStableWriteReplacesWhatIsHeldThere) {
    write_verifier(file_, 0, "unstable");
    write_verifier(file_, 2, "XY", kFileSync);
    EXPECT_EQ(read(file_, 0, 100), "unXYable");
    EXPECT_EQ(commit(file_), commit(file_));
    EXPECT_EQ(file_content("f"), "unXYable");
}

TEST_F(HoldUnstableTest, CuttingAFileOffDropsWhatIsHeldBehind) {
    write_verifier(file_, 0, "0123456789");
    auto reply = nfs(Procedure::setattr, [&](Writer &out) {
        out.put_opaque(file_);
        put_size(out, 4);
        out.put_bool(false);
    });
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    EXPECT_EQ(get_wcc(reply)->size, 4U);
    EXPECT_EQ(read(file_, 0, 100), "0123");
    commit(file_);
    EXPECT_EQ(file_content("f"), "0123");
}

TEST_F(HoldUnstableTest, RemovingAFileDropsWhatIsHeld) {
    write_verifier(file_, 0, "data");
    EXPECT_EQ(remove(root(), "f"), NfsStatus::ok);
    EXPECT_EQ(backend_->files->unstable_bytes(), 0U);
}

}  // namespace
