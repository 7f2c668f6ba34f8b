// SPDX-License-Identifier: Apache-2.0
// What the server serves of NFS version 4, minor versions 1 and 2 (RFC 8881 sections 15 and 18, RFC 7862), and the
// names of the statuses that faults may ask for.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "nfstdm/nfs4/constants.h"
#include "tools/loopnfsd/base/procedures.h"
#include "tools/loopnfsd/base/status.h"

namespace loopnfsd::nfs4 {

constexpr uint32_t kVersion = 4;
constexpr uint32_t kProcCompound = 1;

using nfstdm::nfs4::Op;
constexpr uint32_t kFirstOp = 3;
constexpr uint32_t kLastOp1 = 58;  // of minor version 1
constexpr uint32_t kLastOp2 = 71;  // of minor version 2

using Status = nfstdm::nfs4::NfsStatus;

// "EXPIRED" for NFS4ERR_EXPIRED; "?" for a number that is none.
std::string_view status_name(Status status);

// The reverse, in any case, with or without "NFS4ERR_".
std::optional<Status> status_by_name(std::string_view name);

// What an object's status of version 3 is called in version 4.
Status from(NfsStatus status);

// The row of an operation, for counters and faults; nullptr for one that is not served.
const ProcedureRow *find_operation(uint32_t number);
const ProcedureRow *find_operation(std::string_view name);  // in any case
std::span<const ProcedureRow> all_operations();

}  // namespace loopnfsd::nfs4
