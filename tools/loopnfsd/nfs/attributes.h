// SPDX-License-Identifier: Apache-2.0
// fattr3, wcc_data and sattr3 (RFC 1813 section 2.6).
#pragma once

#include <sys/stat.h>

#include <cstddef>

#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"
#include "tools/loopnfsd/files/changed_attributes.h"

namespace loopnfsd {

constexpr std::size_t kPostOpAttributesSize = 88;  // bytes of a post_op_attr that has attributes

void put_attributes(nfstdm::xdr::Writer &out, const struct statx &status);          // fattr3
void put_post_op_attributes(nfstdm::xdr::Writer &out, const struct statx *status);  // nullptr: none
void put_pre_op_attributes(nfstdm::xdr::Writer &out, const struct statx *status);

// sattr3
bool get_changed_attributes(nfstdm::xdr::Reader &in, ChangedAttributes &changed);

}  // namespace loopnfsd
