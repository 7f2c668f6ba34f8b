// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/dd_input.h"

#include <algorithm>

#include "tslwnfs/commands/dd_records.h"

namespace {

volatile std::sig_atomic_t interrupt_arrived = 0;

void note_interrupt(int) {
    interrupt_arrived = 1;
}

}  // namespace

InterruptAsEndOfInput::InterruptAsEndOfInput() {
    interrupt_arrived = 0;
    struct sigaction action = {};
    action.sa_handler = note_interrupt;  // no restart: the read that waits has to return
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previous_);
}

InterruptAsEndOfInput::~InterruptAsEndOfInput() {
    sigaction(SIGINT, &previous_, nullptr);
    interrupt_arrived = 0;
}

bool InterruptAsEndOfInput::arrived() {
    return interrupt_arrived != 0;
}

bool DdInput::allocate(std::size_t block) {
    block_ = block;
    constexpr std::size_t kLeast = 32768;  // what every transfer can hold
    return buffer_.allocate(kDdRecords.function, TransferBuffer::size_for(std::max(block, kLeast)));
}

uint64_t DdInput::padded_size() const {
    return std::max(size_, source_->total());
}

std::span<const std::byte> DdInput::read_next_block() {
    const auto count = static_cast<uint32_t>(std::min<uint64_t>(block_, padded_size() - offset_));
    requests_.fill(slot_, IoOperation::read, source_->info.file, offset_, buffer_.data(), count);
    readnfsfile(requests_, slot_, kNoneCompleted);
    slot_ = (slot_ + 1) % RequestSlots::kRound;
    advance(count);
    return buffer_.bytes().first(count);
}

void DdInput::advance(uint64_t bytes) {
    offset_ += bytes;
}

void DdInput::discard(uint64_t bytes) {
    while (offset_ < bytes && offset_ < size_) {
        if (is_remote()) {
            read_next_block();
        } else {
            read_stream(buffer().first(std::min<uint64_t>(block_, bytes - offset_)));
        }
    }
}

void DdInput::limit(uint64_t bytes) {
    end_ = bytes > UINT64_MAX - offset_ ? UINT64_MAX : offset_ + bytes;
}

std::span<const std::byte> DdInput::read_remote(bool with_padding) {
    const bool to_the_end = end() == size_;
    const uint64_t wanted_end = to_the_end && with_padding ? padded_size() : end();
    const uint64_t wanted = wanted_end - offset_;
    const std::span<const std::byte> block = read_next_block();
    return block.first(std::min<uint64_t>(block.size(), wanted));
}

DdInput::Block DdInput::read_stream(std::span<std::byte> buffer) {
    FILE *const stream = source_ == nullptr ? stdin : source_->stream.get();
    const bool over = source_ == nullptr && InterruptAsEndOfInput::arrived();
    const std::size_t length = over ? 0 : std::fread(buffer.data(), 1, buffer.size(), stream);
    if (length == 0) {
        size_ = offset_;
        return {0, 0};
    }
    const std::size_t wanted = std::min<uint64_t>(length, end() - offset_);
    advance(length);
    return {length, wanted};
}
