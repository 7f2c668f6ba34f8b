// SPDX-License-Identifier: Apache-2.0
// Numbers of the portmapper, version 2 (RFC 1833 section 3). Client and loopback server share them.
#pragma once

#include <cstdint>

namespace nfstdm::portmap {

constexpr uint32_t kProgram = 100000;
constexpr uint32_t kVersion = 2;
constexpr uint16_t kPort = 111;
constexpr uint32_t kProcNull = 0;
constexpr uint32_t kProcGetPort = 3;
constexpr uint32_t kProtocolTcp = 6;
constexpr uint32_t kProtocolUdp = 17;

}  // namespace nfstdm::portmap
