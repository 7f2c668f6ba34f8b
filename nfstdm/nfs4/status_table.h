// SPDX-License-Identifier: Apache-2.0
// What a status of the server means to the user.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "nfstdm/base/status.h"
#include "nfstdm/nfs4/constants.h"

namespace nfstdm::nfs4 {

struct StatusRow {
    NfsStatus status;
    int number;              // the errno that fits
    std::string_view name;   // as the RFC has it
    std::string_view words;  // for people
    Condition condition = Condition::none;
};

std::span<const StatusRow> status_table();

// The server does not know a state that it was shown, or not any more.
bool state_is_lost(NfsStatus status);

// Of a status that is no success.
Status to_status(NfsStatus status);

}  // namespace nfstdm::nfs4
