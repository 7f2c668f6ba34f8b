// SPDX-License-Identifier: Apache-2.0
// The permission bits that what this process makes does not get.
#pragma once

#include <cstdint>

namespace nfstdm {

// Read where it can be read: setting it, the only other way to learn it, would for a moment open what other threads of
// the process create.
uint32_t process_umask();

}  // namespace nfstdm
