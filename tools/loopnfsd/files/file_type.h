// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace loopnfsd {

// The type of an object by the bits of its mode: ftype3 (RFC 1813 section 2.6) and nfs_ftype4 (RFC 8881 section 3.2)
// have the same numbers for what a file system holds.
uint32_t type_of(uint32_t mode);

}  // namespace loopnfsd
