// SPDX-License-Identifier: Apache-2.0
// The batches of dd: blocks of a local file or of standard input, written to a remote file many at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "tslwnfs/commands/dd_input.h"
#include "tslwnfs/commands/unfinished_destination.h"
#include "tslwnfs/storage/transfer.h"

class DdBatch {
  public:
    // file is the identifier of the remote output, offset where it begins (bytes). The slots must outlive the batch.
    DdBatch(uint64_t file, uint64_t offset, RequestSlots &requests)
        : file_(file), offset_(offset), requests_(requests) {}

    // Prepares a buffer for each request of a batch: up to nios of them, as far as their blocks (bytes, above 0) fit
    // into the memory that a batch may take.
    [[nodiscard]] bool allocate(std::size_t block);

    // Copies the rest of the input. Returns false when a batch could not be submitted or awaited; a request that
    // completes with a status is reported and the copy goes on.
    [[nodiscard]] bool copy(DdInput &input, UnfinishedDestination &unfinished);

  private:
    std::span<std::byte> slot_buffer(std::size_t slot) const;
    std::size_t fill(DdInput &input);
    bool submit(std::size_t number);
    bool wait(std::size_t number);
    void drain(std::size_t first, std::size_t number);
    void report_failures(std::size_t first, std::size_t number);

    uint64_t file_;
    uint64_t offset_;
    RequestSlots &requests_;
    TransferBuffer buffer_;
    std::size_t block_ = 0;
    std::size_t stride_ = 0;    // bytes from one slot's buffer to the next, whole pages
    std::size_t capacity_ = 0;  // requests a batch
};
