// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/client/presented_identity.h"

#include <utility>

#include "nfstdm/rpc/auth/identity.h"

bool presented_identity(PresentedIdentity &identity) {
    auto own = nfstdm::rpc::process_identity();
    if (!own.ok()) return false;
    identity = {std::move(own.value().machine), own.value().uid, own.value().gid};
    return true;
}
