// SPDX-License-Identifier: Apache-2.0
// The procedures this client uses, a row each (RFC 1813 section 3.3). Sending again, its judgement and the bounds of
// what may come back read the row. A new procedure needs a row here, a function in arguments.h and one in replies.h;
// tests/unit/nfs3/procedures_test.cpp tells when the row is incomplete.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

#include "nfstdm/nfs3/constants.h"

namespace nfstdm::nfs3 {

struct ProcedureRow {
    Procedure number;
    std::string_view name;
    // Executing it twice ends like executing it once. Where it does not, the second answer tells that the first
    // execution did the work: done_before is that answer.
    bool repeatable;
    NfsStatus done_before;
    // Bytes of results that can come, opaque data at their end not counted; for READDIR and READDIRPLUS what the answer
    // holds besides the entries asked for.
    std::size_t results_maximum;
};

std::span<const ProcedureRow> procedure_table();

// The row of a procedure that has one.
const ProcedureRow &row_of(Procedure procedure);

}  // namespace nfstdm::nfs3
