// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/rpc.h"

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;
using loopnfsd::find_procedure;
using loopnfsd::kNoStatus;
using nfstdm::rpc::AcceptStatus;
using Reply = std::vector<uint32_t>;

constexpr uint32_t kNfs = nfstdm::nfs3::kProgram;

class RpcTest : public InMemory {
  protected:
    void SetUp() override { start(); }

    // The words of the reply without record mark and xid.
    Reply reply_to(const Writer &call) {
        const auto answered = answer(call);
        EXPECT_TRUE(answered.reply.has_value());
        if (!answered.reply) return {};
        Reader in(std::span<const std::byte>(answered.reply->head).subspan(8));
        Reply words;
        for (uint32_t word = 0; in.left() > 0 && in.get_u32(word);)
            words.push_back(word);
        return words;
    }
    Reply reply_to(uint32_t program, uint32_t version, uint32_t procedure) {
        Writer call;
        put_header(call, program, version, procedure);
        return reply_to(call);
    }
    static Reply accepted(AcceptStatus status, Reply more = {}) {
        Reply words{1, 0, 0, 0, static_cast<uint32_t>(status)};
        words.insert(words.end(), more.begin(), more.end());
        return words;
    }
};

TEST_F(RpcTest, TheNullProcedureOfEveryProgramAnswersNothing) {
    for (const auto &[program, version] : {std::pair{kNfs, 3U}, {nfstdm::mount3::kProgram, 3U}, {100000U, 2U}})
        EXPECT_EQ(reply_to(program, version, 0), accepted(AcceptStatus::success));
}

TEST_F(RpcTest, AnUnknownProgramIsUnavailable) {
    EXPECT_EQ(reply_to(100021, 4, 0), accepted(AcceptStatus::program_unavailable));
}

TEST_F(RpcTest, AnotherVersionIsToldWhichOneThereIs) {
    EXPECT_EQ(reply_to(kNfs, 4, 1), accepted(AcceptStatus::program_mismatch, {3, 3}));
    EXPECT_EQ(reply_to(100000, 4, 3), accepted(AcceptStatus::program_mismatch, {2, 2}));
    EXPECT_EQ(backend_->statistics.line(backend_->faults), "connections=0 unknown=2");
}

TEST_F(RpcTest, AnUnknownProcedureIsUnavailable) {
    EXPECT_EQ(reply_to(kNfs, 3, 22), accepted(AcceptStatus::procedure_unavailable));
    EXPECT_EQ(reply_to(kNfs, 3, 0xFFFFFFFF), accepted(AcceptStatus::procedure_unavailable));
}

TEST_F(RpcTest, AnotherVersionOfRpcIsDenied) {
    Writer call;
    put_header(call, kNfs, 3, 0);
    call.patch_u32(8, 3);
    EXPECT_EQ(reply_to(call), (Reply{1, 1, 0, 2, 2}));
}

TEST_F(RpcTest, BrokenCredentialsAreDenied) {
    Writer call;
    put_header(call, kNfs, 3, 0);
    call.patch_u32(28, 12);  // the credentials' length: the machine name is cut off
    EXPECT_EQ(reply_to(call), (Reply{1, 1, 1, 1}));
    Writer large;
    put_header(large, kNfs, 3, 0);
    large.patch_u32(28, 401);
    EXPECT_EQ(reply_to(large), (Reply{1, 1, 1, 1}));
}

TEST_F(RpcTest, BytesThatAreNoCallGetNoAnswer) {
    Writer reply;
    put_header(reply, kNfs, 3, 0);
    reply.patch_u32(4, nfstdm::rpc::kReply);
    EXPECT_FALSE(answer(reply).reply);
    Writer shortened;
    shortened.put_u32(1);
    EXPECT_FALSE(answer(shortened).reply);
    EXPECT_FALSE(answer(Writer{}).reply);
    EXPECT_EQ(backend_->statistics.broken_records, 3U);
}

TEST_F(RpcTest, EveryProcedureRefusesArgumentsThatEndTooSoonOrTooLate) {
    for (const auto &row : loopnfsd::all_procedures()) {
        if (row.version == 4) continue;  // a compound tells so in its own status
        Writer late;
        put_header(late, row.program, row.program == 100000 ? 2 : 3, row.number);
        for (int i = 0; i < 200; ++i)
            late.put_u32(0);
        EXPECT_EQ(reply_to(late), accepted(AcceptStatus::garbage_arguments)) << row.name;
        const bool has_arguments = row.failure_words != kNoStatus || row.name == "UMNT" || row.name == "GETPORT";
        if (has_arguments) {
            EXPECT_EQ(reply_to(row.program, row.program == 100000 ? 2 : 3, row.number),
                      accepted(AcceptStatus::garbage_arguments))
                << row.name;
        }
    }
}

TEST_F(RpcTest, AHandleBeyondTheProtocolsSizeIsGarbage) {
    Writer call;
    put_header(call, kNfs, 3, 1);
    call.put_opaque(Handle(65));
    EXPECT_EQ(reply_to(call), accepted(AcceptStatus::garbage_arguments));
}

TEST_F(RpcTest, AFailureHasTheShapeOfItsProcedure) {
    for (const auto &row : loopnfsd::all_procedures()) {
        if (row.failure_words == kNoStatus || row.version == 4) continue;
        fault("status=" + std::string(row.name) + ":JUKEBOX:1");
        EXPECT_EQ(reply_to(row.program, 3, row.number),
                  accepted(AcceptStatus::success,
                           [&] {
                               Reply words(static_cast<std::size_t>(row.failure_words) + 1);
                               words[0] = static_cast<uint32_t>(NfsStatus::jukebox);
                               return words;
                           }()))
            << row.name;
    }
}

TEST_F(RpcTest, CallsAreCountedByProcedureAndTheCallerIsRemembered) {
    who_ = {12, 34};
    lookup(root(), ".");
    lookup(root(), ".");
    EXPECT_EQ(backend_->statistics.calls.at("LOOKUP"), 2U);
    EXPECT_EQ(backend_->statistics.calls.at("MNT"), 2U);
    EXPECT_EQ(backend_->statistics.last_caller.uid, 12U);
    EXPECT_EQ(backend_->statistics.last_caller.gid, 34U);
    EXPECT_EQ(backend_->statistics.last_caller.machine, "tester");
    EXPECT_EQ(backend_->statistics.line(backend_->faults), "connections=0 LOOKUP=2 MNT=2");
}

TEST_F(RpcTest, AnExecutedCallIsLoggedWithItsStatus) {
    std::vector<std::string> lines;
    backend_->dispatcher->log_to([&](const std::string &line) { lines.push_back(line); });
    EXPECT_EQ(lookup_status(root(), "none"), NfsStatus::noent);
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_TRUE(lines[1].starts_with("127.0.0.1 uid=0 gid=0 LOOKUP NOENT ")) << lines[1];
}

}  // namespace
