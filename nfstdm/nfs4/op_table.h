// SPDX-License-Identifier: Apache-2.0
// The operations this client uses, a row each (RFC 8881 section 18). A new one needs a row here, a function in
// arguments.h and one in replies.h; tests/unit/nfs4/op_table_test.cpp tells when the row is incomplete.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "nfstdm/nfs4/constants.h"

namespace nfstdm::nfs4 {

struct OpRow {
    Op number;
    std::string_view name;
    // It changes something, so the server is asked to keep its answer: after a lost connection the same slot and
    // sequence number give that answer and not a second execution (section 2.10.6).
    bool changes;
    // Bytes of results that can come, the operation's number and status included. Opaque data at their end and the
    // entries of a directory are not counted.
    std::size_t results_maximum;
};

std::span<const OpRow> op_table();
const OpRow &row_of(Op op);

}  // namespace nfstdm::nfs4
