// SPDX-License-Identifier: Apache-2.0
// Who may do what, by the classic mode bits: only asked when identities are to be enforced.
#pragma once

#include <sys/stat.h>

#include "tools/loopnfsd/wire/call.h"

namespace loopnfsd {

// May be or-ed. The values of read, write and execute are those of the permission bits.
enum Want : unsigned {
    kWantExecute = 1,  // search, on a directory
    kWantWrite = 2,
    kWantRead = 4,
    kWantOwner = 8,  // to be the owner
};

// The caller has everything that is wanted. The owner of a regular file may always read and write it, because an NFS
// client checks the mode when the file is opened, and reads and writes later (RFC 1813 section 4.4).
bool has_permission(const Credentials &who, const struct statx &status, unsigned want);

}  // namespace loopnfsd
