// SPDX-License-Identifier: Apache-2.0
// The language of faults: "NAME", "NAME=VALUE", with "@N" behind it when only the Nth address misbehaves.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "tools/loopnfsd/base/procedures.h"

namespace loopnfsd {

enum class FaultKind {
    bad_names,
    big_size,
    capacity,
    cookie_loop,
    cut_after,
    cut_request,
    delay,
    drop_reply,
    duplicate,
    endless_readdir,
    forget,
    handle_size,
    long_name,
    no_readdirplus,
    oversize_record,
    rate,
    read_only,
    reorder,
    reset,
    rpc_error,
    rtt,
    rubbish,
    rubbish_record,
    short_read,
    short_write,
    silent,
    status,
    undersize_record,
    wrong_xid,
    count_of_kinds,
};

// What may follow the name.
enum class FaultShape {
    flag,             // nothing
    number,           // =N, K M G T allowed
    optional_number,  // nothing, or =N
    number_count,     // =N[:COUNT]
    calls,            // =PROC:N[:COUNT]: the Nth call of PROC from now on, and COUNT in all (1)
    status,           // =PROC:STATUS:COUNT[:SKIP]: COUNT calls after the first SKIP; * = without end
};

struct FaultRow {
    FaultKind kind;
    std::string_view name;
    FaultShape shape;
    uint64_t usual;  // the number of an optional_number that was not given
    std::string_view argument;
    std::string_view help;
};

constexpr std::size_t kFaultKinds = static_cast<std::size_t>(FaultKind::count_of_kinds);
const std::array<FaultRow, kFaultKinds> &fault_rows();
const FaultRow &row_of(FaultKind kind);

// What an RPC-level refusal says (RFC 5531 section 9).
enum class RpcError : uint32_t {
    prog_unavail,
    prog_mismatch,
    proc_unavail,
    garbage_args,
    system_err,
    rpc_mismatch,
    auth_error
};

constexpr uint64_t kWithoutEnd = std::numeric_limits<uint64_t>::max();

struct Fault {
    FaultKind kind = FaultKind::forget;
    unsigned path = 0;                        // 1 = the first address; 0 = all
    uint64_t number = 0;                      // of the number shapes
    uint32_t status = 0;                      // nfsstat3, or RpcError
    const ProcedureRow *procedure = nullptr;  // nullptr: any but NULL
    uint64_t skip = 0;                        // calls that pass before it fires
    uint64_t count = kWithoutEnd;             // calls or connections it still hits
};

// Gives what is wrong with the text, or nothing and the fault.
std::string parse_fault(std::string_view text, Fault &fault);

}  // namespace loopnfsd
