// SPDX-License-Identifier: Apache-2.0
// What a server's refusal means here: nfsstat3 (RFC 1813 section 2.6) to errno and words.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "nfstdm/base/status.h"
#include "nfstdm/nfs3/constants.h"

namespace nfstdm::nfs3 {

struct StatusRow {
    NfsStatus status;
    int number;  // errno
    std::string_view name;
    std::string_view words;
    Condition condition = Condition::none;
};

// A row for every value of RFC 1813, in rising order.
std::span<const StatusRow> status_table();

// The status for a number off the wire that is not 0, mountstat3 included. A number nobody knows is EIO and stands in
// the words.
Status to_status(uint32_t number);

}  // namespace nfstdm::nfs3
