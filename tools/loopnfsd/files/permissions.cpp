// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/files/permissions.h"

#include <algorithm>

namespace loopnfsd {

namespace {

bool in_group(const Credentials &who, uint32_t group) {
    return who.gid == group || std::ranges::find(who.groups, group) != who.groups.end();
}

unsigned bits_of(const Credentials &who, const struct statx &status) {
    constexpr unsigned kEverything = kWantRead | kWantWrite | kWantExecute;
    if (who.uid == status.stx_uid) {
        const unsigned bits = status.stx_mode >> 6 & kEverything;
        return S_ISREG(status.stx_mode) ? bits | kWantRead | kWantWrite : bits;
    }
    return (in_group(who, status.stx_gid) ? status.stx_mode >> 3 : status.stx_mode) & kEverything;
}

}  // namespace

bool has_permission(const Credentials &who, const struct statx &status, unsigned want) {
    if (who.uid == 0) return true;
    if ((want & kWantOwner) != 0 && who.uid != status.stx_uid) return false;
    const unsigned bits = want & ~kWantOwner;
    return (bits_of(who, status) & bits) == bits;
}

}  // namespace loopnfsd
