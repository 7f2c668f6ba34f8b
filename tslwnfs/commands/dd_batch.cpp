// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/dd_batch.h"

#include <algorithm>

#include "tslwnfs/commands/dd_records.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"

namespace {

// With large blocks a batch is made of fewer requests: a copy of any size takes this much memory and no more.
constexpr std::size_t kMemoryMaximum = std::size_t{32} << 20;

}  // namespace

bool DdBatch::allocate(std::size_t block) {
    constexpr std::size_t kPage = TransferBuffer::kPage;
    block_ = block;
    stride_ = (block + kPage - 1) / kPage * kPage;
    const std::size_t asked = std::clamp<std::size_t>(static_cast<std::size_t>(std::max(nios, 1)), 1, requests_.size());
    capacity_ = std::clamp<std::size_t>(kMemoryMaximum / stride_, 1, asked);
    return buffer_.allocate(kDdRecords.function, capacity_ * stride_ + kPage);
}

std::span<std::byte> DdBatch::slot_buffer(std::size_t slot) const {
    return buffer_.bytes().subspan(slot * stride_, block_);
}

bool DdBatch::copy(DdInput &input, UnfinishedDestination &unfinished) {
    while (!input.at_end()) {
        unfinished.at(offset_);
        const std::size_t number = fill(input);
        if (number == 0) break;
        if (!submit(number) || !wait(number)) return false;
        print("readio::%d\n", static_cast<int>(number));
    }
    return true;
}

// Makes write requests of the next blocks. A block that came short is written whole, with zeros behind what came: the
// output receives whole blocks and is cut to its size at the end.
std::size_t DdBatch::fill(DdInput &input) {
    std::size_t slot = 0;
    for (; slot < capacity_ && !input.at_end(); ++slot) {
        const std::span<std::byte> buffer = slot_buffer(slot);
        const DdInput::Block block = input.read_stream(buffer);
        if (block.length == 0) break;
        if (block.length != block_) {
            print("warning ::%d. ibs-%d & len-%d differ\n", static_cast<int>(slot), IBS,
                  static_cast<int>(block.length));
        }
        std::ranges::fill(buffer.subspan(block.wanted), std::byte{0});
        const std::size_t count = block.length == block_ ? block.wanted : block_;
        requests_.fill(slot, IoOperation::write, file_, offset_, buffer.data(), static_cast<uint32_t>(count));
        offset_ += block_;
    }
    return slot;
}

bool DdBatch::submit(std::size_t number) {
    uint32_t count = 0;
    const uint32_t status =
        tdm_io(ctx, requests_.from(0), static_cast<uint32_t>(number), nullptr, 0, nullptr, 0, 0, 0, &count);
    if (status == 0) return true;
    trace_message(kDdRecords.function, Message::request_not_submitted, status);
    return false;
}

bool DdBatch::wait(std::size_t number) {
    // Waiting for more than is outstanding would never end.
    const std::size_t step = static_cast<std::size_t>(std::max(std::min(wios, nios), 1));
    for (std::size_t first = 0; first < number; first += step) {
        const std::size_t waited = std::min(step, number - first);
        uint32_t count = 0;
        const uint32_t status = tdm_io(ctx, nullptr, 0, nullptr, 0, requests_.from(first),
                                       static_cast<uint32_t>(waited), 0, TDM_WAIT_FOREVER, &count);
        if (status != 0) {
            trace_message(kDdRecords.function, Message::request_incomplete, status);
            drain(first + waited, number);
            return false;
        }
        report_failures(first, waited);
    }
    return true;
}

// Collects what is still on its way, since the buffers are about to go.
void DdBatch::drain(std::size_t first, std::size_t number) {
    for (std::size_t slot = first; slot < number; ++slot) {
        uint32_t count = 0;
        tdm_io(ctx, nullptr, 0, nullptr, 0, requests_.from(slot), 1, 0, TDM_WAIT_FOREVER, &count);
    }
}

void DdBatch::report_failures(std::size_t first, std::size_t number) {
    for (std::size_t slot = first; slot < first + number; ++slot) {
        const TdmIoRequest &request = requests_[slot];
        if (request.status == 0) continue;
        trace_message(kDdRecords.function, Message::write_completed_with, request.status);
        print("Warning::%d. i/o submission failed erc=%d offset=%llu\n", static_cast<int>(slot),
              static_cast<int>(request.status), static_cast<unsigned long long>(request.offset));
    }
}
