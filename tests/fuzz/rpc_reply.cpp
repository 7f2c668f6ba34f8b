// SPDX-License-Identifier: Apache-2.0
// The stream of replies on a connection: record marks, headers, and READ data on its way into the caller's buffer.
//
// The first byte sets how the stream is cut, the second after how many bytes a request is given up; the rest is the
// stream. However it is cut, the same records come out of it, and nothing is written outside the buffer.
#include <array>
#include <cstring>
#include <map>
#include <vector>

#include "nfstdm/nfs3/replies.h"
#include "nfstdm/rpc/message/message.h"
#include "nfstdm/rpc/receiver.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace nfstdm;
using fuzz::Bytes;
using fuzz::require;

constexpr uint32_t kPlainXid = 1;
constexpr uint32_t kReadXid = 2;
constexpr uint32_t kLargeXid = 3;
constexpr std::size_t kGuard = 16;  // bytes around the buffer
constexpr std::size_t kLanding = 40;
constexpr std::byte kUntouched{0xEE};

struct Arrival {
    uint32_t xid;
    std::vector<std::byte> reply;
    std::size_t landed;
    bool whole;

    bool operator==(const Arrival &) const = default;
};

// What a stream came to.
struct Outcome {
    std::vector<Arrival> arrivals;
    std::vector<std::byte> buffer;
    bool failed = false;

    bool operator==(const Outcome &) const = default;
};

// Whether a whole reply without a landing is judged the same way by both readers of the header.
void examine_header(Bytes reply) {
    const rpc::ReplyHeader header = rpc::read_reply_header(reply);
    const bool accepted = header.status.ok();
    const std::size_t results = header.results;
    require(results <= reply.size(), "results begin inside the reply");
    const std::size_t position = rpc::results_position(reply);
    require(accepted == (position <= reply.size()), "both readers of a header agree on success");
    require(!accepted || position == results, "both readers of a header agree on the place");
}

class Connection : public rpc::RecordSink {
  public:
    Connection() : buffer_(kLanding + 2 * kGuard, kUntouched) {
        request(kPlainXid).results_maximum = 64;
        request(kLargeXid).results_maximum = 2048;
        rpc::Request &read = request(kReadXid);
        read.results_maximum = 4 + 88 + 12;
        read.landing = std::span{buffer_}.subspan(kGuard, kLanding);
        read.data_position = nfs3::read_data_position;
    }

    rpc::Request *expected(uint32_t xid) override {
        const auto found = requests_.find(xid);
        return found == requests_.end() ? nullptr : &found->second;
    }
    std::size_t record_maximum() const override { return 4096; }
    void record_received(rpc::Request &request, bool whole) override {
        require(request.reply.size() <= request.record_maximum(), "a reply is no larger than was asked for");
        require(request.landed <= request.landing.size(), "no more data than was asked for");
        if (request.data_position == nullptr && whole) examine_header(request.reply);
        outcome_.arrivals.push_back({request.xid(), request.reply, request.landed, whole});
        requests_.erase(request.xid());  // as the client does: an answer comes once
    }

    // Feeds bytes in pieces of at most step; false when the connection is good for nothing any more.
    bool feed(Bytes bytes, std::size_t step) {
        while (!bytes.empty()) {
            const std::size_t filled = fill(bytes.first(std::min(step, bytes.size())));
            bytes = bytes.subspan(filled);
            if (receiver_.filled(filled).ok()) continue;
            outcome_.failed = true;
            return false;
        }
        return true;
    }

    void give_up_read() {
        const auto found = requests_.find(kReadXid);
        if (found == requests_.end()) return;
        receiver_.abandon(found->second);
        requests_.erase(found);
    }

    Outcome end() {
        outcome_.buffer = buffer_;
        const auto untouched = [](std::byte byte) { return byte == kUntouched; };
        require(std::all_of(buffer_.begin(), buffer_.begin() + kGuard, untouched) &&
                    std::all_of(buffer_.end() - kGuard, buffer_.end(), untouched),
                "nothing is written outside the buffer");
        return outcome_;
    }

  private:
    rpc::Request &request(uint32_t xid) {
        rpc::Request &made = requests_[xid];
        made.sequence = xid;
        return made;
    }

    // Puts as much as there is room for where the receiver wants it; gives how much.
    std::size_t fill(Bytes bytes) {
        std::array<iovec, 2> areas{};
        const std::size_t count = receiver_.places(areas);
        std::size_t filled = 0;
        for (const iovec &area : std::span{areas}.first(count)) {
            const std::size_t size = std::min(area.iov_len, bytes.size() - filled);
            if (size > 0) std::memcpy(area.iov_base, bytes.data() + filled, size);
            filled += size;
        }
        require(filled > 0, "there is room for the next bytes");
        return filled;
    }

    std::map<uint32_t, rpc::Request> requests_;
    std::vector<std::byte> buffer_;
    Outcome outcome_;
    rpc::Receiver receiver_{*this};
};

Outcome receive(Bytes stream, std::size_t step, std::size_t given_up_after) {
    Connection connection;
    if (given_up_after == 0 || given_up_after > stream.size()) {
        connection.feed(stream, step);
    } else if (connection.feed(stream.first(given_up_after), step)) {
        connection.give_up_read();
        connection.feed(stream.subspan(given_up_after), step);
    }
    return connection.end();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::size_t step = 1 + input.byte() % 64;
    const std::size_t given_up_after = input.byte();
    const Bytes stream = input.rest();
    examine_header(stream);
    require(receive(stream, step, given_up_after) == receive(stream, stream.size(), given_up_after),
            "the records do not depend on how the stream is cut");
    return 0;
}
