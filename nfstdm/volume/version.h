// SPDX-License-Identifier: Apache-2.0
// The version of NFS that a server is asked in, as tslnfstab's key "version" has it.
#pragma once

#include <cstdint>
#include <string_view>

#include "nfstdm/base/status.h"

namespace nfstdm {

struct NfsVersion {
    uint32_t major = 3;
    uint32_t minor = 0;  // of version 4: 1 or 2, or 0 for the highest that both sides have
    bool pnfs = false;   // was asked for: data then goes through the server like all else
};

// "nfsv3", "nfsv4", "nfsv4.1", "nfsv4.2" or "pnfs", in any case, the letters in front or not. Fails with
// EPROTONOSUPPORT, saying which there are.
Result<NfsVersion> parse_version(std::string_view text);

}  // namespace nfstdm
