// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/connection.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <utility>

#include "nfstdm/rpc/envelope.h"
#include "nfstdm/rpc/transport/socket.h"

namespace nfstdm::rpc {

namespace {

// Pieces that are sent at once: several small requests leave in one packet, one large WRITE takes four.
constexpr std::size_t kParts = 48;
// How often one turn of the loop receives before others have their turn.
constexpr int kReceivesPerTurn = 16;

// The parts of a record that are still to be sent, given how much of it was; gathers them without copying.
class Gather {
  public:
    bool full() const { return count_ + 4 > kParts; }

    void add(const Request &request, std::size_t sent) {
        for (const auto &piece : rpc::pieces(request))
            add(piece, sent);
    }

    std::span<const iovec> pieces() const { return std::span{parts_}.first(count_); }

  private:
    void add(std::span<const std::byte> bytes, std::size_t &sent) {
        const std::size_t skipped = std::min(sent, bytes.size());
        sent -= skipped;
        if (skipped == bytes.size()) return;
        // Sending only reads, although an iovec is not const.
        parts_[count_++] = {const_cast<std::byte *>(bytes.data()) + skipped, bytes.size() - skipped};
    }

    std::array<iovec, kParts> parts_{};
    std::size_t count_ = 0;
};

}  // namespace

void Connection::open(std::unique_ptr<Transport> connected) {
    assert(!is_open() && idle());
    transport_ = std::move(connected);
    receiver_.reset();
    record_maximum_ = 0;
    watched_ = 0;
    parting_ = false;
    watch();
}

void Connection::close() {
    if (!is_open()) return;
    loop_.forget(transport_->descriptor());
    if (parting_) transport_->close_behind();
    transport_.reset();
    receiver_.reset();
    cursor_ = 0;
}

void Connection::fail(const Status &why, bool nonsense) {
    close();
    owner_.connection_closed(why, nonsense);
}

void Connection::send(std::unique_ptr<Request> request) {
    assert(is_open());
    weight_ += request->weight();
    record_maximum_ = std::max(record_maximum_, request->record_maximum());
    sending_.push_back(std::move(request));
    // With something half sent already the socket is full, and the loop will tell when it is not.
    if (sending_.size() == 1) flush();
}

std::vector<std::unique_ptr<Request>> Connection::take_all() {
    assert(!is_open());
    std::vector<std::unique_ptr<Request>> all;
    all.reserve(sending_.size() + on_wire_.size());
    for (auto &[xid, request] : on_wire_)
        all.push_back(std::move(request));
    for (auto &request : sending_)
        all.push_back(std::move(request));
    on_wire_.clear();
    moved_.clear();
    sending_.clear();
    weight_ = 0;
    std::sort(all.begin(), all.end(), [](const auto &a, const auto &b) { return a->sequence < b->sequence; });
    return all;
}

std::unique_ptr<Request> Connection::take(const Request &request) {
    std::unique_ptr<Request> taken;
    if (const auto wired = on_wire_.find(request.xid()); wired != on_wire_.end()) {
        static_cast<void>(receiver_.abandon(request));
        taken = std::move(wired->second);
        on_wire_.erase(wired);
        weight_ -= taken->weight();
        return taken;
    }
    const auto queued =
        std::find_if(sending_.begin(), sending_.end(), [&request](const auto &each) { return each.get() == &request; });
    if (queued == sending_.end()) return nullptr;
    const bool half_sent = queued == sending_.begin() && cursor_ > 0;
    taken = std::move(*queued);
    sending_.erase(queued);
    weight_ -= taken->weight();
    if (half_sent) fail({ECANCELED, "a request was given up while it was being sent"}, false);
    return taken;
}

bool Connection::movable(const Request &request) const {
    if (on_wire_.contains(request.xid())) return !request.landing.empty();
    return !half_sent(request) || (sending_.size() == 1 && on_wire_.empty());
}

void Connection::limit_unsent(std::size_t bytes) {
    assert(is_open());
    rpc::limit_unsent(transport_->descriptor(), bytes);
}

std::unique_ptr<Request> Connection::move(const Request &request) {
    assert(movable(request) && !half_sent(request));
    const auto wired = on_wire_.find(request.xid());
    if (wired == on_wire_.end()) return take(request);
    auto moved = std::move(wired->second);
    on_wire_.erase(wired);
    // An answer that has begun is not announced any more.
    if (receiver_.abandon(request))
        weight_ -= moved->weight();
    else
        moved_.emplace(moved->xid(), moved->weight());
    return moved;
}

uint64_t Connection::progress() const {
    const std::size_t waiting = is_open() ? transport_->unacknowledged() : 0;
    // A transport may add bytes of its own to those that wait; what was acknowledged once stays so.
    acknowledged_bytes_ = std::max(acknowledged_bytes_, sent_bytes_ - std::min<uint64_t>(sent_bytes_, waiting));
    return received_bytes_ + acknowledged_bytes_;
}

void Connection::watch() {
    const short events =
        static_cast<short>(sending_.empty() && !transport_->holds_unsent() ? POLLIN : POLLIN | POLLOUT);
    if (events == watched_) return;
    watched_ = events;
    loop_.watch(transport_->descriptor(), events, [this](short happened) { ready(happened); });
}

void Connection::ready(short events) {
    if ((events & ~POLLOUT) != 0) receive();
    if (is_open() && (events & POLLOUT) != 0) flush();
}

void Connection::receive() {
    for (int i = 0; i < kReceivesPerTurn && is_open(); ++i) {
        std::array<iovec, 2> areas;
        const auto places = std::span<const iovec>{areas}.first(receiver_.places(areas));
        const auto got = transport_->receive(places);
        if (!got.ok()) return fail(got.status(), false);
        const std::size_t size = got.value();
        if (size == 0) return;
        received_bytes_ += size;
        const Status status = receiver_.filled(size);
        if (!is_open()) return;  // an answer made the owner send, and that failed
        if (!status.ok()) return fail(status, true);
        std::size_t room = 0;
        for (const iovec &place : places)
            room += place.iov_len;
        if (size < room) return;  // that was all there is
    }
    receive_held();
}

// What the loop will not tell of, as no more bytes come for it: once others had their turn.
void Connection::receive_held() {
    if (!is_open() || !transport_->holds_received() || std::exchange(resuming_, true)) return;
    life_.soon(loop_, [this] {
        resuming_ = false;
        if (is_open()) receive();
    });
}

void Connection::flush() {
    while (!sending_.empty() || transport_->holds_unsent()) {
        Gather gather;
        std::size_t offered = 0;
        for (auto next = sending_.begin(); next != sending_.end() && !gather.full(); ++next) {
            const std::size_t already = next == sending_.begin() ? cursor_ : 0;
            gather.add(**next, already);
            offered += wire_size(**next) - already;
        }
        const auto taken = transport_->send(gather.pieces());
        if (!taken.ok()) return fail(taken.status(), false);
        sent(taken.value());
        if (taken.value() < offered || transport_->holds_unsent()) break;
    }
    watch();
}

// size more bytes have left; requests whose last byte did are on the wire now.
void Connection::sent(std::size_t size) {
    sent_bytes_ += size;
    cursor_ += size;
    while (!sending_.empty() && cursor_ >= wire_size(*sending_.front())) {
        cursor_ -= wire_size(*sending_.front());
        Request &whole = *sending_.front();
        if (++whole.sends == 1) whole.first_sent = std::chrono::steady_clock::now();
        auto left = std::move(sending_.front());
        sending_.pop_front();
        parting_ = left->one_way;
        if (!parting_) {
            const uint32_t xid = left->xid();
            on_wire_.insert_or_assign(xid, std::move(left));
            continue;
        }
        weight_ -= left->weight();
        owner_.connection_sent(std::move(left));
    }
    assert(!sending_.empty() || cursor_ == 0);
}

Request *Connection::expected(uint32_t xid) {
    const auto found = on_wire_.find(xid);
    if (found != on_wire_.end()) return found->second.get();
    if (const auto moved = moved_.find(xid); moved != moved_.end()) {
        weight_ -= moved->second;
        moved_.erase(moved);
    }
    return nullptr;
}

void Connection::record_received(Request &request, bool whole) {
    const auto found = on_wire_.find(request.xid());
    assert(found != on_wire_.end());
    auto answered = std::move(found->second);
    on_wire_.erase(found);
    weight_ -= answered->weight();
    open_reply(*answered, whole);
    if (!answered->suspect) return owner_.connection_answered(std::move(answered));
    // Whoever spoiled one answer may spoil the next. The request is asked again elsewhere.
    const Status why = std::exchange(answered->status, {});
    const uint32_t xid = answered->xid();
    weight_ += answered->weight();
    on_wire_.emplace(xid, std::move(answered));
    fail(why, true);
}

}  // namespace nfstdm::rpc
