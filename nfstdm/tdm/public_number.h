// SPDX-License-Identifier: Apache-2.0
// From a status inside the library to the number its callers see.
#pragma once

#include <cerrno>
#include <cstdint>

#include "nfstdm/base/status.h"

namespace nfstdm {

// The errno, but for a stale handle, which keeps the number it has in the protocol (RFC 1813 section 2.6): callers know
// it as 70.
inline uint32_t public_number(const Status &status) {
    constexpr uint32_t kStale = 70;
    return status.number() == ESTALE ? kStale : status.number();
}

}  // namespace nfstdm
