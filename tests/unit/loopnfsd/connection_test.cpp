// SPDX-License-Identifier: Apache-2.0
// A connection between two ends of a socket pair: what goes over it, and how it ends.
#include "tools/loopnfsd/wire/connection.h"

#include <sys/socket.h>

#include <array>

#include "tests/unit/loopnfsd/in_memory.h"

namespace {

using namespace loopnfsd_test;
using loopnfsd::FaultKind;

class ConnectionTest : public InMemory {
  protected:
    void SetUp() override {
        start();
        connect();
    }

    void connect() {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()), 0);
        client_ = loopnfsd::UniqueFd(ends[0]);
        closed_ = false;
        connection_.reset();
        connection_.emplace(loopnfsd::Surroundings{loop_, *backend_->dispatcher, backend_->faults, backend_->statistics,
                                                   tls_, std::size_t{1} << 16},
                            loopnfsd::UniqueFd(ends[1]), loopnfsd::Arrival{1, 2049, "client"},
                            [this] { closed_ = true; });
    }

    void send(std::string_view bytes) {
        ASSERT_EQ(::send(client_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    // A call of the null procedure, with its record mark.
    static std::string null_call(uint32_t xid) {
        Writer out;
        out.put_u32(0);
        put_header(out, nfstdm::nfs3::kProgram, 3, 0);
        out.patch_u32(0, static_cast<uint32_t>(out.size() - 4) | nfstdm::rpc::kLastFragment);
        out.patch_u32(4, xid);
        return {reinterpret_cast<const char *>(out.bytes().data()), out.size()};
    }

    // Serves until the client has so many bytes, or the connection has ended.
    void serve(std::size_t bytes) {
        loop_.run_until([&] {
            receive();
            return received_.size() >= bytes || closed_;
        });
        receive();
    }
    // Serves whatever is ready without waiting.
    void serve_what_is_there() {
        for (int i = 0; i < 20; ++i)
            loop_.poll_once();
        receive();
    }
    void receive() {
        std::array<char, 4096> piece{};
        ssize_t got = 0;
        while ((got = recv(client_.get(), piece.data(), piece.size(), 0)) > 0)
            received_.append(piece.data(), static_cast<std::size_t>(got));
    }
    std::vector<uint32_t> xids() const {
        std::vector<uint32_t> found;
        for (std::size_t at = 4; at + 4 <= received_.size(); at += kReplySize) {
            Reader in(std::as_bytes(std::span(received_)).subspan(at));
            in.get_u32(found.emplace_back());
        }
        return found;
    }

    static constexpr std::size_t kReplySize = 28;  // of the null procedure, with its record mark
    using Xids = std::vector<uint32_t>;

    nfstdm::EventLoop loop_;
    loopnfsd::TlsService tls_;
    std::optional<loopnfsd::Connection> connection_;
    loopnfsd::UniqueFd client_;
    std::string received_;
    bool closed_ = false;
};

TEST_F(ConnectionTest, AnswersCallsThatArriveTogetherInTheirOrder) {
    send(null_call(1) + null_call(2) + null_call(3));
    serve(3 * kReplySize);
    EXPECT_EQ(xids(), (Xids{1, 2, 3}));
}

TEST_F(ConnectionTest, EndsWhenTheClientLeaves) {
    client_.close();
    loop_.run_until([&] { return closed_; });
    EXPECT_TRUE(closed_);
}

TEST_F(ConnectionTest, EndsAtARecordThatIsTooLarge) {
    send("\x7f\xff\xff\xff");
    loop_.run_until([&] { return closed_; });
    EXPECT_EQ(backend_->statistics.broken_records, 1U);
}

TEST_F(ConnectionTest, IsCutAfterExactlySoManyBytes) {
    const std::size_t call_size = null_call(1).size();
    for (std::size_t limit = 1; limit < 2 * (call_size + kReplySize); ++limit) {
        connect();
        received_.clear();
        backend_->statistics.reset();
        fault("cut-after=" + std::to_string(limit));
        send(null_call(1));
        serve(kReplySize);
        if (!closed_) {
            send(null_call(2));
            serve(2 * kReplySize);
        }
        EXPECT_TRUE(closed_);
        EXPECT_EQ(backend_->statistics.bytes_received + backend_->statistics.bytes_sent, limit);
        EXPECT_EQ(received_.size(), backend_->statistics.bytes_sent);
    }
}

TEST_F(ConnectionTest, IsCutOnceForACountOfOne) {
    fault("cut-after=1");
    send(null_call(1));
    serve(kReplySize);
    EXPECT_TRUE(closed_);
    connect();
    send(null_call(2));
    serve(kReplySize);
    EXPECT_EQ(xids(), Xids{2});
    EXPECT_EQ(backend_->faults.fired(FaultKind::cut_after), 1U);
}

TEST_F(ConnectionTest, EndsInPlaceOfADroppedReply) {
    fault("drop-reply=NULL:2");
    send(null_call(1));
    serve(kReplySize);
    send(null_call(2));
    serve(2 * kReplySize);
    EXPECT_TRUE(closed_);
    EXPECT_EQ(xids(), Xids{1});
}

TEST_F(ConnectionTest, SendsRepliesTwiceWhenToldTo) {
    fault("duplicate");
    send(null_call(1) + null_call(2));
    serve(4 * kReplySize);
    EXPECT_EQ(xids(), (Xids{1, 1, 2, 2}));
}

TEST_F(ConnectionTest, SendsRepliesBackwardsWhenToldTo) {
    fault("reorder=3");
    send(null_call(1) + null_call(2) + null_call(3));
    serve(3 * kReplySize);
    EXPECT_EQ(xids(), (Xids{3, 2, 1}));
    EXPECT_EQ(backend_->faults.fired(FaultKind::reorder), 1U);
}

TEST_F(ConnectionTest, CountsTheBytesOfEachPath) {
    send(null_call(1));
    serve(kReplySize);
    EXPECT_EQ(backend_->statistics.bytes_by_path,
              (std::map<unsigned, uint64_t>{{1, null_call(1).size() + kReplySize}}));
}

TEST_F(ConnectionTest, DelaysRepliesAndSendsThemAll) {
    fault("rtt=1");
    fault("delay=1");
    send(null_call(1) + null_call(2));
    serve(2 * kReplySize);
    EXPECT_EQ(xids(), (Xids{1, 2}));
}

TEST_F(ConnectionTest, IsSilentUntilThatIsOver) {
    fault("silent");
    connection_->wake();
    send(null_call(1));
    serve_what_is_there();
    EXPECT_EQ(received_, "");
    EXPECT_FALSE(closed_);
    backend_->faults.clear("silent");
    connection_->wake();
    serve(kReplySize);
    EXPECT_EQ(xids(), Xids{1});
}

TEST_F(ConnectionTest, KeepsToARateAndLosesNothing) {
    fault("rate=100000");
    std::string calls;
    Xids expected;
    for (uint32_t xid = 1; xid <= 200; ++xid) {
        calls += null_call(xid);
        expected.push_back(xid);
    }
    send(calls);
    serve(200 * kReplySize);
    EXPECT_EQ(xids(), expected);
}

}  // namespace
