// SPDX-License-Identifier: Apache-2.0
// The input side of dd: standard input, a local file or a remote file, read in input blocks.
#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>

#include "tslwnfs/commands/source_file.h"
#include "tslwnfs/storage/transfer.h"

// While one lives, an interrupt ends the reading of standard input and not the process: the user was told to send one
// when the input is complete, and what was typed has yet to reach the output.
class InterruptAsEndOfInput {
  public:
    InterruptAsEndOfInput();
    ~InterruptAsEndOfInput();
    InterruptAsEndOfInput(const InterruptAsEndOfInput &) = delete;
    InterruptAsEndOfInput &operator=(const InterruptAsEndOfInput &) = delete;

    static bool arrived();

  private:
    struct sigaction previous_ = {};
};

class DdInput {
  public:
    static constexpr uint64_t kUntilEnd = UINT64_MAX;  // the size of a stream that is read until its end

    // Reads size bytes of a file, or of standard input when there is none. start is where a stream stands, in bytes
    // from the beginning of the input. The slots must outlive the input.
    DdInput(const SourceFile *source, uint64_t size, uint64_t start, RequestSlots &requests)
        : source_(source), size_(size), requests_(requests), offset_(start) {}

    bool is_remote() const { return source_ != nullptr && !source_->local; }

    // Allocates the buffer of one block (bytes, above 0).
    [[nodiscard]] bool allocate(std::size_t block);

    // Reads and discards until at least this many bytes of the input are behind: whole blocks of a remote file, exactly
    // so many bytes of a stream.
    void discard(uint64_t bytes);

    // Ends the copy this many bytes from here.
    void limit(uint64_t bytes);

    bool at_end() const { return offset_ >= end(); }
    // Where the input stands, and how much of it is still to come (bytes).
    uint64_t offset() const { return offset_; }
    uint64_t left() const { return at_end() ? 0 : end() - offset_; }
    bool is_endless() const { return end() == kUntilEnd; }
    // So many bytes of it were copied otherwise.
    void pass(uint64_t bytes) { advance(bytes); }
    // Bytes of the input; what was read, once a stream has ended before its size.
    uint64_t size() const { return size_ == kUntilEnd ? (end_ < offset_ ? end_ : offset_) : size_; }

    // Reads the next block of a remote file and gives what is wanted of it: with the padding behind the file when the
    // copy goes to its very end and with_padding says so. Valid until the next call.
    std::span<const std::byte> read_remote(bool with_padding);

    // A block of a stream: how many bytes came, and how many of these are wanted.
    struct Block {
        std::size_t length;
        std::size_t wanted;
    };
    // Reads a block that fills the buffer; the end of the stream, or an interrupt, makes it shorter. A block of no
    // bytes ends the input.
    Block read_stream(std::span<std::byte> buffer);

    // The buffer of one block.
    std::span<std::byte> buffer() const { return buffer_.bytes().first(block_); }

  private:
    uint64_t end() const { return end_ < size_ ? end_ : size_; }
    uint64_t padded_size() const;
    void advance(uint64_t bytes);
    std::span<const std::byte> read_next_block();

    const SourceFile *source_;
    uint64_t size_;
    RequestSlots &requests_;
    uint64_t offset_;
    uint64_t end_ = UINT64_MAX;  // no limit
    std::size_t slot_ = 0;
    TransferBuffer buffer_;
    std::size_t block_ = 0;
};
