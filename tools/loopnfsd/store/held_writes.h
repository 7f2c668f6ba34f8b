// SPDX-License-Identifier: Apache-2.0
// Unstable data that has not been committed: kept in memory, so that a crash of the server loses it as a crash of a
// machine would.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <unordered_map>
#include <vector>

#include "tools/loopnfsd/store/handles.h"

namespace loopnfsd {

class HeldWrites {
  public:
    // Keeps a copy of the bytes; newer ones hide older ones. offset + data.size() must fit 64 bits.
    void write(const FileKey &file, uint64_t offset, std::span<const std::byte> data);

    // Lays what is held over bytes that were read from the file at offset.
    void overlay(const FileKey &file, uint64_t offset, std::span<std::byte> bytes) const;

    // Raises size and times to what they would be if the data were in the file.
    void adjust(const FileKey &file, struct statx &status) const;

    // Drops what is held of a range: other bytes were written there, or the file was cut off.
    void drop(const FileKey &file, uint64_t begin, uint64_t end);
    void drop(const FileKey &file);
    void drop_all();

    // Hands every held piece of a file to store, which says whether it took it; what was taken is no longer held.
    // Stops at, and gives false for, the first that was not.
    using Store = std::function<bool(uint64_t offset, std::span<const std::byte> data)>;
    bool drain(const FileKey &file, const Store &store);

    std::vector<FileKey> files() const;
    uint64_t bytes() const { return bytes_; }

  private:
    using Pieces = std::map<uint64_t, std::vector<std::byte>>;  // by offset, never overlapping
    struct File {
        Pieces pieces;
        statx_timestamp changed{};  // of the last write
    };
    void carve(Pieces &pieces, uint64_t begin, uint64_t end);

    std::unordered_map<FileKey, File, FileKeyHash> files_;
    uint64_t bytes_ = 0;
};

}  // namespace loopnfsd
