// SPDX-License-Identifier: Apache-2.0
// How much is asked for in one question, whatever the protocol, in bytes.
#pragma once

#include <cstdint>

namespace nfstdm {

// The most data one READ or WRITE carries, however much more a server would take: beyond this the requests in flight
// cover the way to the server just as well, and a lost connection costs less.
constexpr uint32_t kTransferMaximum = uint32_t{1} << 20;

// Of a directory, unless the server prefers more or takes less.
constexpr uint32_t kDirectoryBytes = uint32_t{256} << 10;

}  // namespace nfstdm
