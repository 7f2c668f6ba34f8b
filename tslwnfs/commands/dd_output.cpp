// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/dd_output.h"

#include <algorithm>

#include "platform/write_errors.h"
#include "tslwnfs/commands/dd_records.h"
#include "tslwnfs/output/messages.h"

bool DdOutput::allocate(std::size_t output_block, std::size_t input_block) {
    block_ = output_block;
    gathers_ = input_block < output_block;
    return buffer_.allocate(kDdRecords.function, TransferBuffer::size_for(output_block));
}

bool DdOutput::write(std::span<const std::byte> block) {
    if (gathers_) return gather(block);
    while (!block.empty()) {
        const std::size_t length = std::min(block_, block.size());
        if (!write_piece(block.first(length))) return false;
        block = block.subspan(length);
    }
    return true;
}

bool DdOutput::gather(std::span<const std::byte> block) {
    while (!block.empty()) {
        const std::size_t length = std::min(block_ - gathered_, block.size());
        std::ranges::copy(block.first(length), buffer_.data() + gathered_);
        gathered_ += length;
        block = block.subspan(length);
        if (gathered_ == block_ && !finish()) return false;
    }
    return true;
}

bool DdOutput::finish() {
    if (gathered_ == 0) return true;
    const std::size_t length = gathered_;
    gathered_ = 0;
    return write_piece(buffer_.bytes().first(length));
}

bool DdOutput::write_piece(std::span<const std::byte> piece) {
    if (destination_ != nullptr && !destination_->local) return write_remote(piece);
    FILE *const stream = destination_ == nullptr ? stdout : destination_->stream.get();
    if (std::fwrite(piece.data(), 1, piece.size(), stream) == piece.size()) {
        offset_ += piece.size();
        return true;
    }
    note_write(stream);
    trace_unwritten(kDdRecords.function, destination_ == nullptr ? "stdout" : destination_->path.c_str());
    return false;
}

bool DdOutput::write_remote(std::span<const std::byte> piece) {
    if (piece.data() != buffer_.data()) std::ranges::copy(piece, buffer_.data());
    requests_.fill(slot_, IoOperation::write, destination_->info.file, offset_, buffer_.data(),
                   static_cast<uint32_t>(piece.size()));
    writenfsfile(requests_, slot_, kNoneCompleted);
    slot_ = (slot_ + 1) % RequestSlots::kRound;
    offset_ += piece.size();
    return true;
}
