// SPDX-License-Identifier: Apache-2.0
// The output side of dd: standard output, a local file or a remote file, written in output blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

#include "tslwnfs/commands/destination_file.h"
#include "tslwnfs/storage/transfer.h"

class DdOutput {
  public:
    // Writes to a local or remote destination, or to standard output when there is none. offset is where the output
    // begins, in bytes; a stream has been positioned by whoever opened it. The slots must outlive the output.
    DdOutput(const DestinationFile *destination, uint64_t offset, RequestSlots &requests)
        : destination_(destination), offset_(offset), requests_(requests) {}

    // Bytes from the beginning of the output to the end of what was written.
    uint64_t end() const { return offset_; }

    // Prepares for output blocks of a size, fed by input blocks of a size (bytes, both above 0).
    [[nodiscard]] bool allocate(std::size_t output_block, std::size_t input_block);

    // Takes one input block. An input block that is not smaller than an output block is written out at once, as whole
    // output blocks and a remainder; smaller ones are gathered until they fill an output block. Returns false when a
    // local write fails; a failing remote request ends the process.
    [[nodiscard]] bool write(std::span<const std::byte> block);

    // Writes what has been gathered.
    [[nodiscard]] bool finish();

  private:
    bool write_piece(std::span<const std::byte> piece);
    bool write_remote(std::span<const std::byte> piece);
    bool gather(std::span<const std::byte> block);

    const DestinationFile *destination_;
    uint64_t offset_;
    RequestSlots &requests_;
    std::size_t slot_ = 0;
    TransferBuffer buffer_;  // the output block in the making, and the page-aligned data of remote requests
    std::size_t block_ = 0;
    std::size_t gathered_ = 0;
    bool gathers_ = false;
};
