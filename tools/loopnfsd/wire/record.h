// SPDX-License-Identifier: Apache-2.0
// Record marking (RFC 5531 section 11), both ways.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "tools/loopnfsd/wire/call.h"

namespace loopnfsd {

// A reply as it goes out: record mark and head in one piece, bulk data behind it.
struct Record {
    std::vector<std::byte> head;
    Bulk bulk;
    bool starts_tls = false;  // what goes either way behind it is TLS

    std::size_t size() const { return head.size() + bulk.size; }
};

constexpr std::size_t kRecordMarkSize = 4;

// Writes the mark of one last fragment of so many bytes into the first word.
void set_record_mark(Record &record, uint32_t size);

// Receives a stream of records into one buffer and gives them from where they lie; only what arrives in several
// fragments is moved together.
class RecordReader {
  public:
    // maximum: bytes of the largest record that is accepted.
    explicit RecordReader(std::size_t maximum);

    // Where the next bytes belong, never empty; and how many were put there.
    std::span<std::byte> space();
    void received(std::size_t size) { end_ += size; }

    enum class Next { record, incomplete, too_large };
    // The record is valid until the next call of space().
    Next next(std::span<const std::byte> &record);

  private:
    std::size_t missing() const;
    void compact();
    uint32_t mark_at(std::size_t position) const;

    std::size_t maximum_;
    std::size_t capacity_;
    std::unique_ptr<std::byte[]> buffer_;
    std::size_t begin_ = 0;      // of the fragments of a record that are complete
    std::size_t assembled_ = 0;  // bytes in them
    std::size_t parsed_ = 0;     // the next record mark
    std::size_t end_ = 0;
};

}  // namespace loopnfsd
