// SPDX-License-Identifier: Apache-2.0
// A handle that the server no longer knows is looked up again, once.
#pragma once

#include "nfstdm/files/mount_set.h"

namespace nfstdm {

inline const Status &status_of(const Status &status) {
    return status;
}

template <class T>
const Status &status_of(const Result<T> &result) {
    return result.status();
}

template <class Operation>
auto retry_when_stale(MountSet &mounts, Operation &&operation) {
    auto result = operation();
    if (!status_of(result).is(Condition::stale)) return result;
    mounts.forget_handles();
    return operation();
}

}  // namespace nfstdm
