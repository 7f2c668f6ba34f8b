// SPDX-License-Identifier: Apache-2.0
// The receiving half of a connection: takes the byte stream apart into records (RFC 5531 section 11) and their parts,
// and says where the next bytes belong, so that READ data goes from the kernel straight into the caller's buffer.
#pragma once

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/request.h"

namespace nfstdm::rpc {

// Who waits for records.
class RecordSink {
  public:
    virtual ~RecordSink() = default;

    // The request that waits for a reply with this xid; null when nobody does, and the record is skipped. The request
    // stays the sink's; it must live until record_received() or until Receiver::abandon() or reset().
    virtual Request *expected(uint32_t xid) = 0;

    // The largest record anyone waits for, or may still get from an earlier request.
    virtual std::size_t record_maximum() const = 0;

    // A record for a request is complete; reply and landed of the request are filled in. whole is false when the record
    // ended early or held more than the data and its padding.
    virtual void record_received(Request &request, bool whole) = 0;
};

class Receiver {
  public:
    // What the next byte of the stream is part of. tail is what follows the data: padding, if all is well.
    enum class State : uint8_t { mark, xid, head, data, tail, skip };

    explicit Receiver(RecordSink &sink) : sink_(sink), stage_(kStageSize) {}

    // Forgets whatever was half received: for a new connection.
    void reset();

    // The places to put the next bytes of the stream into, in this order; gives how many of the two are used. They stay
    // valid until the next call of a function of this class.
    std::size_t places(std::array<iovec, 2> &areas);

    // size bytes were put there. Fails when what came cannot be a sequence of expected records; the connection is then
    // good for nothing.
    Status filled(std::size_t size);

    // The request is being taken away; the rest of its record, if that is under way, is skipped. Says whether it is.
    bool abandon(const Request &request);

    State state() const { return state_; }

  private:
    // What lies between the big pieces is collected here: large enough for the end of one reply and the head of the
    // next, small enough that hardly any READ data is copied out of it.
    static constexpr std::size_t kStageSize = 512;
    static constexpr std::size_t kDiscardSize = std::size_t{64} << 10;

    // Four bytes being collected; a record mark may come in the middle of an xid.
    struct Word {
        uint32_t value = 0;
        std::size_t bytes = 0;
    };

    void enter(State state) { state_ = state; }
    std::span<std::byte> target();
    std::size_t take(std::span<const std::byte> bytes);
    static std::size_t take_word(std::span<const std::byte> bytes, Word &word);
    Status advance(std::size_t size);
    Status on_mark();
    Status on_xid();
    void on_head();
    Status end_of_fragment();
    Status end_of_record();

    RecordSink &sink_;
    State state_ = State::mark;
    State resume_ = State::xid;  // what goes on behind the next record mark
    bool last_fragment_ = false;
    std::size_t fragment_left_ = 0;
    std::size_t record_size_ = 0;  // as far as the marks seen announce it
    Word mark_;
    Word xid_;

    Request *request_ = nullptr;  // whose record this is; null while unknown and while skipping
    std::size_t head_size_ = 0;   // bytes of its reply that are filled
    std::size_t head_need_ = 0;   // bytes of head to collect before deciding again; kWholeRecord = all there are
    std::size_t data_size_ = 0;   // as the results announce it
    std::size_t tail_size_ = 0;

    std::vector<std::byte> stage_;
    std::size_t offered_ = 0;  // bytes of the direct place last given out
    std::vector<std::byte> discard_;
};

}  // namespace nfstdm::rpc
