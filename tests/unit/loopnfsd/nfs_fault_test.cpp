// SPDX-License-Identifier: Apache-2.0
// Faults that befall a call or its reply.
#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;
using loopnfsd::FaultKind;
using nfstdm::rpc::kLastFragment;

class NfsFaultTest : public InMemory {
  protected:
    void SetUp() override {
        start();
        root_ = root();
    }

    loopnfsd::Answer getattr_answer() {
        Writer call;
        put_header(call, nfstdm::nfs3::kProgram, 3, 1);
        call.put_opaque(root_);
        return answer(call);
    }
    static uint32_t word(const loopnfsd::Answer &answered, std::size_t position) {
        Reader in(answered.reply->head);
        uint32_t value = 0;
        in.skip(position);
        EXPECT_TRUE(in.get_u32(value));
        return value;
    }

    Handle root_;
};

TEST_F(NfsFaultTest, ACutRequestIsNotExecuted) {
    fault("cut-request=2");
    EXPECT_TRUE(getattr_answer().reply);
    Writer call;
    put_header(call, nfstdm::nfs3::kProgram, 3, static_cast<uint32_t>(Procedure::mkdir));
    call.put_opaque(root_);
    call.put_string("d");
    put_no_changes(call);
    const auto answered = answer(call);
    EXPECT_TRUE(answered.close);
    EXPECT_FALSE(answered.reply);
    EXPECT_FALSE(std::filesystem::exists(folder_.path / "d"));
    EXPECT_EQ(backend_->faults.fired(FaultKind::cut_request), 1U);
}

TEST_F(NfsFaultTest, ACallWhoseReplyIsDroppedIsExecuted) {
    fault("drop-reply=MKDIR:1");
    Writer call;
    put_header(call, nfstdm::nfs3::kProgram, 3, static_cast<uint32_t>(Procedure::mkdir));
    call.put_opaque(root_);
    call.put_string("d");
    put_no_changes(call);
    const auto answered = answer(call);
    EXPECT_TRUE(answered.close);
    EXPECT_FALSE(answered.reply);
    EXPECT_TRUE(std::filesystem::exists(folder_.path / "d"));
}

TEST_F(NfsFaultTest, RubbishStandsBehindAGoodHead) {
    const auto good = getattr_answer();
    fault("rubbish=GETATTR:1");
    const auto spoiled = getattr_answer();
    ASSERT_TRUE(spoiled.reply);
    for (std::size_t position = 4; position < 28; position += 4)
        EXPECT_EQ(word(spoiled, position), word(good, position));
    EXPECT_NE(spoiled.reply->head, good.reply->head);
    EXPECT_EQ(word(spoiled, 0), (spoiled.reply->size() - 4) | kLastFragment);
}

TEST_F(NfsFaultTest, ARubbishRecordIsRubbishThroughout) {
    fault("rubbish-record=GETATTR:1");
    const auto spoiled = getattr_answer();
    EXPECT_EQ(word(spoiled, 0), (spoiled.reply->size() - 4) | kLastFragment);
    EXPECT_NE(word(spoiled, 4), 77U);
}

TEST_F(NfsFaultTest, AWrongXidIsAnotherOne) {
    fault("wrong-xid=GETATTR:1");
    EXPECT_NE(word(getattr_answer(), 4), 77U);
    EXPECT_EQ(word(getattr_answer(), 4), 77U);
}

TEST_F(NfsFaultTest, RecordsMayClaimTooMuchOrHoldTooLittle) {
    fault("oversize-record=GETATTR:1");
    EXPECT_GT(word(getattr_answer(), 0) & ~kLastFragment, 0x70000000U);
    fault("undersize-record=GETATTR:1");
    const auto small = getattr_answer();
    EXPECT_EQ(small.reply->size(), 8U);
    EXPECT_EQ(word(small, 0), 4 | kLastFragment);
}

TEST_F(NfsFaultTest, RpcErrorsAreAnsweredInTheirOwnShape) {
    fault("rpc-error=GETATTR:SYSTEM_ERR:1");
    EXPECT_EQ(word(getattr_answer(), 24), 5U);
    fault("rpc-error=GETATTR:PROG_MISMATCH:1");
    EXPECT_EQ(word(getattr_answer(), 24), 2U);
    fault("rpc-error=GETATTR:AUTH_ERROR:1");
    const auto denied = getattr_answer();
    EXPECT_EQ(word(denied, 12), 1U);
    EXPECT_EQ(word(denied, 16), 1U);
}

TEST_F(NfsFaultTest, HandlesMayHaveAnotherSizeAndStillWork) {
    put_file("f", "x");
    fault("handle-size=64");
    const Handle large = lookup(root_, "f");
    EXPECT_EQ(large.size(), 64U);
    EXPECT_EQ(getattr(large).size, 1U);
    fault("handle-size=65");
    EXPECT_EQ(lookup(root_, "f").size(), 65U);
    fault("handle-size=0");
    EXPECT_EQ(root().size(), 0U);
}

TEST_F(NfsFaultTest, FilesMayClaimAnEnormousSize) {
    put_file("f", "abc");
    fault("big-size");
    const Handle file = lookup(root_, "f");
    EXPECT_EQ(getattr(file).size, 0xFFFFFFFFFFFFFFFEU);
    EXPECT_EQ(read(file, 0, 100), "abc");
}

TEST_F(NfsFaultTest, ReadOnlyRefusesEveryChangeAndNoReading) {
    put_file("f", "abc");
    const Handle file = lookup(root_, "f");
    fault("read-only");
    EXPECT_EQ(remove(root_, "f"), NfsStatus::rofs);
    EXPECT_EQ(write(file, 0, "x").status(), NfsStatus::rofs);
    EXPECT_EQ(read(file, 0, 3), "abc");
    EXPECT_EQ(backend_->faults.fired(FaultKind::read_only), 2U);
}

TEST_F(NfsFaultTest, ReadsAndWritesMayBeShort) {
    fault("short-read=2");
    fault("short-write=3");
    const Handle file = create(root_, "f");
    auto reply = write(file, 0, "abcdef");
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    get_wcc(reply);
    EXPECT_EQ(reply.word(), 3U);
    EXPECT_EQ(read(file, 0, 10), "ab");
    EXPECT_EQ(read(file, 2, 10), "c");
    EXPECT_EQ(file_content("f"), "abc");
}

TEST_F(NfsFaultTest, ACapacityIsUsedUpByWritingAndGivenBackByRemoving) {
    fault("capacity=10");
    const Handle file = create(root_, "f");
    EXPECT_EQ(write(file, 0, "12345678").status(), NfsStatus::ok);
    EXPECT_EQ(write(file, 0, "87654321").status(), NfsStatus::ok);  // over what is there already
    auto reply = write(file, 8, "9abcd");
    EXPECT_EQ(reply.status(), NfsStatus::ok);
    get_wcc(reply);
    EXPECT_EQ(reply.word(), 2U);
    EXPECT_EQ(write(file, 10, "x").status(), NfsStatus::nospc);
    EXPECT_EQ(remove(root_, "f"), NfsStatus::ok);
    EXPECT_EQ(write(create(root_, "g"), 0, "1234567890").status(), NfsStatus::ok);
}

}  // namespace
