// SPDX-License-Identifier: Apache-2.0
// The procedures this server knows, one row each: dispatch, counters, fault switches and the error replies read it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace loopnfsd {

struct ProcedureRow {
    uint32_t program;
    uint32_t version;  // or kAnyVersion
    uint32_t number;
    std::string_view name;  // as the faults and the counters have it; unique but for operations of NFSv4
    // 4-byte words of zero that follow the status in a reply that tells of a failure and of nothing else: one for an
    // absent post_op_attr, two for an absent wcc_data. kNoStatus when the reply does not begin with a status.
    int failure_words;
};

constexpr int kNoStatus = -1;
constexpr uint32_t kAnyVersion = 0;

std::span<const ProcedureRow> all_procedures();

// nullptr for one that is not served.
const ProcedureRow *find_procedure(uint32_t program, uint32_t version, uint32_t number);
const ProcedureRow *find_procedure(std::string_view name);  // in any case

}  // namespace loopnfsd
