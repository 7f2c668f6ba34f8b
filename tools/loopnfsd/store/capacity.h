// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <unordered_map>

#include "tools/loopnfsd/store/handles.h"

namespace loopnfsd {

// How far files have grown since the server started, which the fault "capacity" is compared with. Space is taken by
// writing, not by setting a size, as on a file system with holes.
class Capacity {
  public:
    // The bytes a write of so many at offset would newly take.
    uint64_t cost(const FileKey &file, const struct statx &status, uint64_t offset, uint64_t size) const;
    void charge(const FileKey &file, const struct statx &status, uint64_t offset, uint64_t size);

    // The file was cut off at size (0: or removed); status is the one before.
    void release(const FileKey &file, const struct statx &status, uint64_t size);

    uint64_t used() const { return used_; }

  private:
    uint64_t filled(const FileKey &file, const struct statx &status) const;

    std::unordered_map<FileKey, uint64_t, FileKeyHash> filled_;  // where a file's data ends
    uint64_t used_ = 0;
};

}  // namespace loopnfsd
