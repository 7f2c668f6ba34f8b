// SPDX-License-Identifier: Apache-2.0
// fattr3, wcc_data and sattr3 (RFC 1813 section 2.6).
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>

#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"
#include "tools/loopnfsd/store/tree.h"

namespace loopnfsd {

constexpr std::size_t kPostOpAttributesSize = 88;  // bytes of a post_op_attr that has attributes

void put_attributes(nfstdm::xdr::Writer &out, const struct statx &status);          // fattr3
void put_post_op_attributes(nfstdm::xdr::Writer &out, const struct statx *status);  // nullptr: none
void put_pre_op_attributes(nfstdm::xdr::Writer &out, const struct statx *status);

struct ChangedTime {
    nfstdm::nfs3::TimeHow how = nfstdm::nfs3::TimeHow::dont_change;
    uint32_t seconds = 0;
    uint32_t nanoseconds = 0;
};

struct ChangedAttributes {  // sattr3
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

bool get_changed_attributes(nfstdm::xdr::Reader &in, ChangedAttributes &changed);

// Sets everything but the size on an object that is there.
NfsStatus apply_changes(const Object &object, const ChangedAttributes &changed);

}  // namespace loopnfsd
