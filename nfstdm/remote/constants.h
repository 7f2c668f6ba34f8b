// SPDX-License-Identifier: Apache-2.0
// What all versions of the NFS program have in common. Client and loopback server share it.
#pragma once

#include <cstdint>

namespace nfstdm::remote {

constexpr uint32_t kProgram = 100003;
constexpr uint16_t kPort = 2049;
constexpr uint32_t kVersion3 = 3;
constexpr uint32_t kVersion4 = 4;

}  // namespace nfstdm::remote
