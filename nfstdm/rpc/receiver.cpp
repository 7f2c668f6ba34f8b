// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/receiver.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/words.h"

namespace nfstdm::rpc {

namespace {

using xdr::kWord;

Status nonsense(const char *what) {
    return {EIO, std::string("the server sent ") + what};
}

iovec area(std::span<std::byte> bytes) {
    return {bytes.data(), bytes.size()};
}

}  // namespace

void Receiver::reset() {
    enter(State::mark);
    resume_ = State::xid;
    record_size_ = 0;
    mark_ = {};
    xid_ = {};
    request_ = nullptr;
}

std::size_t Receiver::places(std::array<iovec, 2> &areas) {
    std::size_t count = 0;
    const auto direct = target();
    // The few bytes up to a decision come through the stage, with whatever follows them.
    const bool deciding = state_ == State::head && head_need_ != kWholeRecord;
    offered_ = deciding ? 0 : direct.size();
    if (offered_ > 0) areas[count++] = area(direct);
    areas[count++] = area(stage_);
    return count;
}

Status Receiver::filled(std::size_t size) {
    const std::size_t direct = std::min(size, offered_);
    if (direct > 0) {
        if (Status status = advance(direct); !status.ok()) return status;
    }
    auto bytes = std::span<const std::byte>{stage_}.first(std::min(size - direct, stage_.size()));
    while (!bytes.empty()) {
        const std::size_t taken = take(bytes);
        bytes = bytes.subspan(taken);
        if (Status status = advance(taken); !status.ok()) return status;
    }
    return {};
}

// Where the bytes of the present state go, as far as the fragment reaches; empty for those that are only looked at.
std::span<std::byte> Receiver::target() {
    switch (state_) {
        case State::head: {
            const std::size_t size = std::min(head_need_ - head_size_, fragment_left_);
            auto &reply = request_->reply;
            if (reply.size() < head_size_ + size) reply.resize(head_size_ + size);
            return std::span{reply}.subspan(head_size_, size);
        }
        case State::data:
            return request_->landing.subspan(request_->landed, std::min(data_size_ - request_->landed, fragment_left_));
        case State::skip:
            discard_.resize(kDiscardSize);
            return std::span{discard_}.first(std::min(kDiscardSize, fragment_left_));
        case State::mark:
        case State::xid:
        case State::tail:
            return {};
    }
    return {};
}

// Takes what the present state can use of some bytes; gives how many, never none.
std::size_t Receiver::take(std::span<const std::byte> bytes) {
    switch (state_) {
        case State::mark:
            return take_word(bytes, mark_);
        case State::xid:
            return take_word(bytes.first(std::min(bytes.size(), fragment_left_)), xid_);
        case State::skip:
        case State::tail:
            return std::min(bytes.size(), fragment_left_);
        case State::head:
        case State::data:
            break;
    }
    const auto place = target();
    const std::size_t size = std::min(bytes.size(), place.size());
    std::memcpy(place.data(), bytes.data(), size);
    return size;
}

std::size_t Receiver::take_word(std::span<const std::byte> bytes, Word &word) {
    std::size_t taken = 0;
    for (; taken < bytes.size() && word.bytes < kWord; ++taken, ++word.bytes)
        word.value = word.value << 8 | std::to_integer<uint32_t>(bytes[taken]);
    return taken;
}

// Bytes of the present state are in their place: counts them and draws the conclusions.
Status Receiver::advance(std::size_t size) {
    if (state_ == State::mark) return mark_.bytes == kWord ? on_mark() : Status{};
    fragment_left_ -= size;
    Status status;
    switch (state_) {
        case State::xid:
            if (xid_.bytes == kWord) status = on_xid();
            break;
        case State::head:
            head_size_ += size;
            if (head_size_ >= head_need_) on_head();
            break;
        case State::data:
            request_->landed += size;
            if (request_->landed == data_size_) enter(State::tail);
            break;
        case State::tail:
            tail_size_ += size;
            break;
        case State::mark:
        case State::skip:
            break;
    }
    if (!status.ok() || fragment_left_ > 0) return status;
    return end_of_fragment();
}

Status Receiver::on_mark() {
    const uint32_t mark = std::exchange(mark_, {}).value;
    last_fragment_ = (mark & kLastFragment) != 0;
    fragment_left_ = mark & ~kLastFragment;
    // Empty fragments could go on for ever without a byte of progress.
    if (fragment_left_ == 0 && !last_fragment_) return nonsense("an empty record fragment");
    record_size_ += fragment_left_;
    const std::size_t maximum = request_ != nullptr ? request_->record_maximum() : sink_.record_maximum();
    if (record_size_ > maximum) return nonsense("a record larger than anything that was asked for");
    enter(resume_);
    return fragment_left_ > 0 ? Status{} : end_of_fragment();
}

Status Receiver::on_xid() {
    const uint32_t xid = std::exchange(xid_, {}).value;
    request_ = sink_.expected(xid);
    if (request_ == nullptr) {
        enter(
            State::skip);  // a late answer to a request that was given up or has been answered over another connection
        return {};
    }
    if (record_size_ > request_->record_maximum()) return nonsense("a record larger than what was asked for");
    request_->landed = 0;
    request_->reply.resize(kWord);
    xdr::store_u32(request_->reply, xid);
    head_size_ = kWord;
    data_size_ = 0;
    tail_size_ = 0;
    head_need_ = request_->lands_directly() ? head_size_ : kWholeRecord;
    enter(State::head);
    if (head_need_ == head_size_) on_head();
    return {};
}

// All the head that was needed to decide is there: asks for more of it, or finds where the data begins.
void Receiver::on_head() {
    if (head_need_ == kWholeRecord) return;
    const auto known = std::span<const std::byte>{request_->reply}.first(head_size_);
    const std::size_t results = results_position(known);
    head_need_ = results;
    if (results <= head_size_) {
        const std::size_t data = request_->data_position(known.subspan(results));
        head_need_ = data == kWholeRecord ? kWholeRecord : results + data;
    }
    if (head_need_ > head_size_) return;

    uint32_t size = 0;
    xdr::Reader length(known.last(kWord));
    if (!length.get_u32(size) || size > request_->landing.size()) {
        head_need_ =
            kWholeRecord;  // more than was asked for: collected like any answer, and refused by whoever reads it
        return;
    }
    data_size_ = size;
    enter(size > 0 ? State::data : State::tail);
}

Status Receiver::end_of_fragment() {
    if (last_fragment_) return end_of_record();
    resume_ = state_;
    enter(State::mark);
    return {};
}

Status Receiver::end_of_record() {
    if (state_ == State::xid) return nonsense("a record too short for a reply");
    if (Request *request = std::exchange(request_, nullptr); request != nullptr) {
        const bool whole = state_ == State::tail ? tail_size_ == xdr::padding_of(data_size_)
                                                 : state_ == State::head && head_need_ == kWholeRecord;
        request->reply.resize(head_size_);
        sink_.record_received(*request, whole);
    }
    record_size_ = 0;
    resume_ = State::xid;
    enter(State::mark);
    return {};
}

bool Receiver::abandon(const Request &request) {
    if (request_ != &request) return false;
    request_ = nullptr;
    if (state_ == State::mark)
        resume_ = State::skip;
    else
        enter(State::skip);
    return true;
}

}  // namespace nfstdm::rpc
