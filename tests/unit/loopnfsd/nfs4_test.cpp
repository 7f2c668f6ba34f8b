// SPDX-License-Identifier: Apache-2.0
// NFS version 4 as a client sees it, byte for byte: sessions that answer once, state that comes and goes.
#include <functional>
#include <vector>

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;
using loopnfsd::nfs4::Op;
using loopnfsd::nfs4::Status;
using Bytes = std::vector<std::byte>;

constexpr uint32_t kUnchecked = 0;
constexpr uint32_t kGuarded = 1;

struct State {
    uint32_t sequence = 0;
    Bytes other = Bytes(12);
};

class Nfs4Test : public InMemory {
  protected:
    struct Step {
        Op op;
        Put put = [](Writer &) {};
    };

    void SetUp() override {
        version4_ = true;
        start();
        begin();
    }

    void begin(const std::string &owner = "client", uint64_t verifier = 1) {
        introduce(owner, verifier);
        create_session();
        EXPECT_EQ(ask({{Op::reclaim_complete, [](Writer &out) { out.put_bool(false); }}}), Status::ok);
    }

    // A compound as it is; leaves the cursor behind its status, tag and number of results.
    Status send(const std::vector<Step> &steps, uint32_t minor = 1) {
        reply_ = call(nfstdm::nfs3::kProgram, 4, 1, [&](Writer &out) {
            out.put_u32(0);
            out.put_u32(minor);
            out.put_u32(static_cast<uint32_t>(steps.size()));
            for (const Step &step : steps) {
                out.put_u32(static_cast<uint32_t>(step.op));
                step.put(out);
            }
        });
        const auto status = static_cast<Status>(reply_.word());
        EXPECT_EQ(reply_.text(), "");
        results_ = reply_.word();
        return status;
    }

    // Goes into the next result; gives its status.
    Status next(Op op) {
        EXPECT_EQ(reply_.word(), static_cast<uint32_t>(op));
        return static_cast<Status>(reply_.word());
    }

    Step sequence(bool cache = true) const {
        return {Op::sequence, [this, cache](Writer &out) {
                    out.put_fixed(session_);
                    for (const uint32_t word : {sequence_, 0U, 0U})
                        out.put_u32(word);
                    out.put_bool(cache);
                }};
    }

    // The same behind a SEQUENCE of the next number, or of the last one when it is sent again.
    Status ask(std::vector<Step> steps, bool again = false, bool cache = true) {
        if (!again) ++sequence_;
        steps.insert(steps.begin(), sequence(cache));
        const Status status = send(steps);
        if (results_ == 0 || next(Op::sequence) != Status::ok) return status;
        reply_.results.skip(16 + 4 * 4);
        flags_ = reply_.word();
        return status;
    }

    Status introduce(const std::string &owner, uint64_t verifier) {
        const Status status = send({{Op::exchange_id, [&](Writer &out) {
                                         out.put_u64(verifier);
                                         out.put_string(owner);
                                         for (int i = 0; i < 3; ++i)
                                             out.put_u32(0);
                                     }}});
        next(Op::exchange_id);
        client_ = reply_.number();
        create_sequence_ = reply_.word();
        return status;
    }

    Status create_session() {
        const Status status = send({{Op::create_session, [&](Writer &out) {
                                         out.put_u64(client_);
                                         out.put_u32(create_sequence_);
                                         out.put_u32(0);
                                         for (int i = 0; i < 2; ++i)
                                             for (const uint32_t word : {0U, 1U << 21, 1U << 21, 8192U, 64U, 4U, 0U})
                                                 out.put_u32(word);
                                         out.put_u32(0);
                                         out.put_u32(0);
                                     }}});
        if (next(Op::create_session) != Status::ok) return status;
        std::span<const std::byte> id;
        EXPECT_TRUE(reply_.results.get_fixed(id, 16));
        session_.assign(id.begin(), id.end());
        sequence_ = 0;
        return status;
    }

    static Step plain(Op op) { return {op}; }
    static Step named(Op op, const std::string &name) {
        return {op, [name](Writer &out) { out.put_string(name); }};
    }
    static std::vector<Step> at_export(std::vector<Step> steps) {
        std::vector<Step> all{plain(Op::putrootfh), named(Op::lookup, "export")};
        all.insert(all.end(), steps.begin(), steps.end());
        return all;
    }
    static Step open(const std::string &name, bool create, uint32_t how = kUnchecked, uint32_t access = 3) {
        return {Op::open, [=](Writer &out) {
                    for (const uint32_t word : {0U, access, 0U, 0U, 0U})
                        out.put_u32(word);
                    out.put_string("owner");
                    out.put_bool(create);
                    if (create) {
                        out.put_u32(how);
                        out.put_u32(0);  // no attributes
                        out.put_u32(0);
                    }
                    out.put_u32(0);  // CLAIM_NULL
                    out.put_string(name);
                }};
    }
    static Step with_state(
        Op op, const State &state, const Put &more = [](Writer &) {}) {
        return {op, [=](Writer &out) {
                    out.put_u32(state.sequence);
                    out.put_fixed(state.other);
                    more(out);
                }};
    }
    static Step write(const State &state, const std::string &data) {
        return with_state(Op::write, state, [data](Writer &out) {
            out.put_u64(0);
            out.put_u32(0);
            out.put_string(data);
        });
    }
    static Step read(const State &state) {
        return with_state(Op::read, state, [](Writer &out) {
            out.put_u64(0);
            out.put_u32(100);
        });
    }
    static Step mkdir(const std::string &name) {
        return {Op::create, [name](Writer &out) {
                    out.put_u32(2);
                    out.put_string(name);
                    out.put_u32(0);
                    out.put_u32(0);
                }};
    }

    State open_file(const std::string &name) {
        EXPECT_EQ(ask(at_export({open(name, true), plain(Op::getfh)})), Status::ok);
        next(Op::putrootfh);
        next(Op::lookup);
        EXPECT_EQ(next(Op::open), Status::ok);
        State state;
        state.sequence = reply_.word();
        std::span<const std::byte> other;
        EXPECT_TRUE(reply_.results.get_fixed(other, 12));
        state.other.assign(other.begin(), other.end());
        reply_.results.skip(4 + 16 + 4 + 4 + 4);  // change, flags, attributes, no delegation
        EXPECT_EQ(next(Op::getfh), Status::ok);
        file_ = reply_.handle();
        return state;
    }
    Step putfile() const {
        return {Op::putfh, [file = file_](Writer &out) { out.put_opaque(file); }};
    }
    bool exists(const std::string &name) const { return std::filesystem::exists(folder_.path / name); }

    Reply reply_;
    uint32_t results_ = 0;
    uint32_t flags_ = 0;
    uint64_t client_ = 0;
    uint32_t create_sequence_ = 0;
    Bytes session_;
    uint32_t sequence_ = 0;
    Handle file_;
};

TEST_F(Nfs4Test, ARequestSentAgainIsAnsweredTheSameAndNotExecutedAgain) {
    ASSERT_EQ(ask(at_export({mkdir("d")})), Status::ok);
    const auto first = reply_.bytes;
    std::filesystem::remove(folder_.path / "d");
    EXPECT_EQ(ask(at_export({mkdir("d")}), true), Status::ok);
    EXPECT_EQ(reply_.bytes, first);
    EXPECT_FALSE(exists("d"));
    EXPECT_EQ(backend_->statistics.calls["CREATE"], 1U);
}

TEST_F(Nfs4Test, AnAnswerThatWasNoneToBeKeptIsNotMadeUp) {
    ASSERT_EQ(ask(at_export({mkdir("d")}), false, false), Status::ok);
    EXPECT_EQ(ask(at_export({mkdir("d")}), true, false), Status::retry_uncached_rep);
    EXPECT_EQ(next(Op::putrootfh), Status::retry_uncached_rep);
    EXPECT_EQ(backend_->statistics.calls["CREATE"], 1U);
}

TEST_F(Nfs4Test, ANumberOutOfTurnAnotherRequestAndASlotBeyondTheLastAreRefused) {
    ASSERT_EQ(ask(at_export({mkdir("d")})), Status::ok);
    EXPECT_EQ(ask(at_export({mkdir("other")}), true), Status::seq_false_retry);
    ++sequence_;
    EXPECT_EQ(ask(at_export({mkdir("e")})), Status::seq_misordered);
    EXPECT_FALSE(exists("other"));
    EXPECT_FALSE(exists("e"));
    EXPECT_EQ(send({{Op::sequence,
                     [this](Writer &out) {
                         out.put_fixed(session_);
                         for (const uint32_t word : {1U, 4U, 4U, 0U})
                             out.put_u32(word);
                     }}}),
              Status::badslot);
}

TEST_F(Nfs4Test, OperationsKeepTheirPlaceInACompound) {
    EXPECT_EQ(send({plain(Op::putrootfh)}), Status::op_not_in_session);
    ++sequence_;
    EXPECT_EQ(send({sequence(), sequence()}), Status::sequence_pos);
    EXPECT_EQ(send({{Op::destroy_clientid, [](Writer &out) { out.put_u64(0); }}, plain(Op::putrootfh)}),
              Status::not_only_op);
    EXPECT_EQ(send({plain(Op::putrootfh)}, 0), Status::minor_vers_mismatch);
    EXPECT_EQ(results_, 0U);
    EXPECT_EQ(ask({plain(static_cast<Op>(99))}), Status::op_illegal);
    EXPECT_EQ(next(Op::illegal), Status::op_illegal);
    EXPECT_EQ(ask({plain(static_cast<Op>(12))}), Status::notsupp);
    EXPECT_EQ(ask({plain(Op::getfh)}), Status::nofilehandle);
}

TEST_F(Nfs4Test, AnExportIsFoundFromTheRootAndTheRootFromTheExport) {
    EXPECT_EQ(ask(at_export({plain(Op::lookupp), named(Op::lookup, "export"), plain(Op::getfh)})), Status::ok);
    EXPECT_EQ(ask({plain(Op::putrootfh), named(Op::lookup, "none")}), Status::noent);
    EXPECT_EQ(ask({plain(Op::putrootfh), mkdir("d")}), Status::rofs);
    EXPECT_EQ(ask(at_export({named(Op::lookup, "..")})), Status::badname);
}

TEST_F(Nfs4Test, AFileIsOpenedWrittenReadAndClosed) {
    const State state = open_file("f");
    EXPECT_EQ(ask({putfile(), write(state, "content"), with_state(Op::close, {0, {}}, [](Writer &) {})}),
              Status::badxdr);
    EXPECT_EQ(file_content("f"), "content");
    EXPECT_EQ(ask({putfile(), read(state)}), Status::ok);
    next(Op::putfh);
    EXPECT_EQ(next(Op::read), Status::ok);
    EXPECT_EQ(reply_.word(), 1U);  // the end
    EXPECT_EQ(reply_.text(), "content");
    EXPECT_EQ(backend_->nfs4->open_count(), 1U);
    const Step close{Op::close, [&](Writer &out) {
                         out.put_u32(0);
                         out.put_u32(state.sequence);
                         out.put_fixed(state.other);
                     }};
    EXPECT_EQ(ask({putfile(), close}), Status::ok);
    EXPECT_EQ(backend_->nfs4->open_count(), 0U);
    EXPECT_EQ(ask({putfile(), read(state)}), Status::bad_stateid);
}

TEST_F(Nfs4Test, AGuardedCreationMeetsWhatIsThere) {
    open_file("f");
    EXPECT_EQ(ask(at_export({open("f", true, kGuarded)})), Status::exist);
    std::filesystem::create_directory(folder_.path / "d");
    std::filesystem::create_symlink("f", folder_.path / "l");
    EXPECT_EQ(ask(at_export({open("d", true)})), Status::isdir);
    EXPECT_EQ(ask(at_export({open("l", false)})), Status::symlink);
    EXPECT_EQ(ask(at_export({open("none", false)})), Status::noent);
}

TEST_F(Nfs4Test, WhatIsOpenForReadingIsNotWritten) {
    put_file("f", "content");
    const State writer = open_file("f");
    EXPECT_EQ(ask({putfile(), with_state(Op::open_downgrade, writer,
                                         [](Writer &out) {
                                             for (const uint32_t word : {0U, 1U, 0U})
                                                 out.put_u32(word);
                                         })}),
              Status::ok);
    State reader = writer;
    ++reader.sequence;
    EXPECT_EQ(ask({putfile(), write(reader, "other")}), Status::openmode);
    EXPECT_EQ(ask({putfile(), write(writer, "other")}), Status::old_stateid);
    EXPECT_EQ(file_content("f"), "content");
}

TEST_F(Nfs4Test, StateThatWasTakenAwayIsExpiredAndToldOfUntilItIsFreed) {
    const State state = open_file("f");
    backend_->nfs4->expire();
    EXPECT_EQ(ask({putfile(), write(state, "content")}), Status::expired);
    EXPECT_NE(flags_, 0U);
    EXPECT_EQ(ask({with_state(Op::free_stateid, state)}), Status::ok);
    EXPECT_EQ(ask({putfile(), write(state, "content")}), Status::bad_stateid);
    EXPECT_EQ(flags_, 0U);
}

TEST_F(Nfs4Test, AfterARestartNothingIsKnownAndWhatWasOpenCanBeHadBackInGraceOnly) {
    const State state = open_file("f");
    backend_->nfs4->restart();
    EXPECT_EQ(ask({putfile(), write(state, "content")}), Status::badsession);
    EXPECT_EQ(create_session(), Status::stale_clientid);
    introduce("client", 1);
    EXPECT_EQ(create_session(), Status::ok);
    EXPECT_EQ(ask({putfile(), write(state, "content")}), Status::stale_stateid);
    EXPECT_EQ(ask(at_export({open("f", false)})), Status::grace);
    const Step reclaim{Op::open, [](Writer &out) {
                           for (const uint32_t word : {0U, 2U, 0U, 0U, 0U})
                               out.put_u32(word);
                           out.put_string("owner");
                           out.put_bool(false);
                           out.put_u32(1);  // CLAIM_PREVIOUS
                           out.put_u32(0);
                       }};
    EXPECT_EQ(ask({putfile(), reclaim}), Status::ok);
    const Step complete{Op::reclaim_complete, [](Writer &out) { out.put_bool(false); }};
    EXPECT_EQ(ask({complete}), Status::ok);
    EXPECT_EQ(ask({complete}), Status::complete_already);
    EXPECT_EQ(ask({putfile(), reclaim}), Status::no_grace);
    EXPECT_EQ(ask(at_export({open("f", false)})), Status::ok);
}

TEST_F(Nfs4Test, ALostSessionLeavesWhatIsOpen) {
    const State state = open_file("f");
    backend_->nfs4->lose_sessions();
    EXPECT_EQ(ask({putfile(), write(state, "content")}), Status::badsession);
    introduce("client", 1);
    EXPECT_EQ(create_session(), Status::ok);
    EXPECT_EQ(ask({putfile(), write(state, "content")}), Status::ok);
}

TEST_F(Nfs4Test, AClientThatStartedAnewLosesWhatItHadOpen) {
    open_file("f");
    begin("client", 2);
    EXPECT_EQ(backend_->nfs4->open_count(), 0U);
}

TEST_F(Nfs4Test, ASessionIsMadeOnceHoweverOftenItIsAskedFor) {
    ASSERT_EQ(introduce("another", 1), Status::ok);
    ASSERT_EQ(create_session(), Status::ok);
    const auto first = reply_.bytes;
    EXPECT_EQ(create_session(), Status::ok);
    EXPECT_EQ(reply_.bytes, first);
    create_sequence_ += 2;
    EXPECT_EQ(create_session(), Status::seq_misordered);
}

TEST_F(Nfs4Test, AFaultStrikesAnOperationByItsName) {
    fault("status=WRITE:EXPIRED:1");
    const State state = open_file("f");
    EXPECT_EQ(ask({putfile(), write(state, "content")}), Status::expired);
    EXPECT_EQ(file_content("f"), "");
    EXPECT_EQ(ask({putfile(), write(state, "content")}), Status::ok);
    EXPECT_EQ(file_content("f"), "content");
}

TEST_F(Nfs4Test, AReplyThatIsDroppedWasExecutedAndIsKept) {
    fault("drop-reply=CREATE:1");
    ++sequence_;
    Writer out;
    put_header(out, nfstdm::nfs3::kProgram, 4, 1);
    const std::vector<Step> steps = at_export({mkdir("d")});
    out.put_u32(0);
    out.put_u32(1);
    out.put_u32(static_cast<uint32_t>(steps.size() + 1));
    out.put_u32(static_cast<uint32_t>(Op::sequence));
    sequence().put(out);
    for (const Step &step : steps) {
        out.put_u32(static_cast<uint32_t>(step.op));
        step.put(out);
    }
    EXPECT_FALSE(answer(out).reply);
    EXPECT_TRUE(exists("d"));
    EXPECT_TRUE(answer(out).reply);
    EXPECT_EQ(backend_->statistics.calls["CREATE"], 1U);
}

}  // namespace
