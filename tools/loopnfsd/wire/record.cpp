// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/record.h"

#include <algorithm>
#include <cstring>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/rpc/message/constants.h"

namespace loopnfsd {

namespace {

using nfstdm::rpc::kLastFragment;

constexpr std::size_t kChunk = std::size_t{64} << 10;  // received at a time while no large record is under way

}  // namespace

void set_record_mark(Record &record, uint32_t size) {
    const uint32_t mark = size | kLastFragment;
    for (std::size_t i = 0; i < kRecordMarkSize; ++i)
        record.head[i] = static_cast<std::byte>(mark >> (24 - 8 * i) & 0xFF);
}

RecordReader::RecordReader(std::size_t maximum)
    : maximum_(maximum),
      capacity_(maximum + 2 * kChunk),
      buffer_(std::make_unique_for_overwrite<std::byte[]>(capacity_)) {}

uint32_t RecordReader::mark_at(std::size_t position) const {
    uint32_t mark = 0;
    for (std::size_t i = 0; i < kRecordMarkSize; ++i)
        mark = mark << 8 | std::to_integer<uint32_t>(buffer_[position + i]);
    return mark;
}

// Bytes of the fragment under way that have not arrived.
std::size_t RecordReader::missing() const {
    if (end_ - parsed_ < kRecordMarkSize) return 0;
    const std::size_t size = mark_at(parsed_) & ~kLastFragment;
    return size - std::min(size, end_ - parsed_ - kRecordMarkSize);
}

std::span<std::byte> RecordReader::space() {
    if (assembled_ == 0 && parsed_ == end_) begin_ = parsed_ = end_ = 0;
    // A large record is received to its end and no further, so that the next one need not be moved to the front.
    const std::size_t wanted = std::max(missing(), kChunk);
    if (capacity_ - end_ < wanted) compact();
    return {buffer_.get() + end_, std::min(wanted, capacity_ - end_)};
}

void RecordReader::compact() {
    if (assembled_ == 0) begin_ = parsed_;
    std::memmove(buffer_.get(), buffer_.get() + begin_, assembled_);
    std::memmove(buffer_.get() + assembled_, buffer_.get() + parsed_, end_ - parsed_);
    end_ -= parsed_ - assembled_;
    begin_ = 0;
    parsed_ = assembled_;
}

RecordReader::Next RecordReader::next(std::span<const std::byte> &record) {
    while (end_ - parsed_ >= kRecordMarkSize) {
        const uint32_t mark = mark_at(parsed_);
        const std::size_t size = mark & ~kLastFragment;
        const std::size_t start = parsed_ + kRecordMarkSize;
        if (size > maximum_ - assembled_) return Next::too_large;
        if (size > end_ - start) return Next::incomplete;
        if (assembled_ == 0)
            begin_ = start;
        else
            std::memmove(buffer_.get() + begin_ + assembled_, buffer_.get() + start, size);
        assembled_ += size;
        parsed_ = start + size;
        if ((mark & kLastFragment) == 0) continue;
        record = {buffer_.get() + begin_, assembled_};
        assembled_ = 0;
        return Next::record;
    }
    return Next::incomplete;
}

}  // namespace loopnfsd
