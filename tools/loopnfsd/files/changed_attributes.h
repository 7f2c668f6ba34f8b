// SPDX-License-Identifier: Apache-2.0
// What a caller wants an object's attributes to be: sattr3 of NFS version 3, the writable part of fattr4 of version 4.
#pragma once

#include <cstdint>
#include <optional>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/store/tree.h"

namespace loopnfsd {

struct ChangedTime {
    nfstdm::nfs3::TimeHow how = nfstdm::nfs3::TimeHow::dont_change;
    int64_t seconds = 0;
    uint32_t nanoseconds = 0;  // less than a second
};

struct ChangedAttributes {
    std::optional<uint32_t> mode;
    std::optional<uint32_t> uid;
    std::optional<uint32_t> gid;
    std::optional<uint64_t> size;
    ChangedTime access;
    ChangedTime modification;

    bool times() const {
        return access.how != nfstdm::nfs3::TimeHow::dont_change ||
               modification.how != nfstdm::nfs3::TimeHow::dont_change;
    }
};

constexpr uint32_t kNanosecondsEnd = 1'000'000'000;
constexpr uint32_t kModeBits = 07777;

// Sets everything but the size on an object that is there.
NfsStatus apply_changes(const Object &object, const ChangedAttributes &changed);

}  // namespace loopnfsd
