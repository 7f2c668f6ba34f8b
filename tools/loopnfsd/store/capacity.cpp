// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/capacity.h"

#include <algorithm>

namespace loopnfsd {

uint64_t Capacity::filled(const FileKey &file, const struct statx &status) const {
    const auto found = filled_.find(file);
    if (found != filled_.end()) return found->second;
    return std::min<uint64_t>(status.stx_size, status.stx_blocks * 512);
}

uint64_t Capacity::cost(const FileKey &file, const struct statx &status, uint64_t offset, uint64_t size) const {
    const uint64_t before = filled(file, status);
    return std::max(before, offset + size) - before;
}

void Capacity::charge(const FileKey &file, const struct statx &status, uint64_t offset, uint64_t size) {
    used_ += cost(file, status, offset, size);
    filled_[file] = std::max(filled(file, status), offset + size);
}

void Capacity::release(const FileKey &file, const struct statx &status, uint64_t size) {
    const uint64_t before = filled(file, status);
    used_ -= std::min(used_, before - std::min(before, size));
    if (size == 0)
        filled_.erase(file);
    else
        filled_[file] = std::min(before, size);
}

}  // namespace loopnfsd
