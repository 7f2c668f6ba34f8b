// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/client_layer.h"

#include <unistd.h>

bool presented_identity(PresentedIdentity &identity) {
    constexpr std::size_t kNameMaximum = 512;
    char name[kNameMaximum + 1] = {};
    if (gethostname(name, kNameMaximum) != 0) return false;
    identity = {name, geteuid(), getegid()};
    return true;
}

// Every service of the layer ends with the call that used it, so nothing is left to end.
void shut_down_client_layer(uint32_t) {}
