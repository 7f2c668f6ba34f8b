// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/statistics.h"

namespace loopnfsd {

void Statistics::reset() {
    *this = {};
}

void Statistics::received(unsigned path, uint64_t bytes) {
    bytes_received += bytes;
    bytes_by_path[path] += bytes;
}

void Statistics::sent(unsigned path, uint64_t bytes) {
    bytes_sent += bytes;
    bytes_by_path[path] += bytes;
}

std::string Statistics::line(const Faults &faults) const {
    std::string text = "connections=" + std::to_string(connections);
    const auto add = [&](std::string_view name, uint64_t count) {
        if (count == 0) return;
        text += ' ';
        text += name;
        text += '=' + std::to_string(count);
    };
    add("received", bytes_received);
    add("sent", bytes_sent);
    for (const auto &[path, bytes] : bytes_by_path)
        add("path." + std::to_string(path), bytes);
    for (const ProcedureRow &row : all_procedures())
        if (const auto found = calls.find(row.name); found != calls.end()) add(row.name, found->second);
    add("unknown", unknown_calls);
    add("broken", broken_records);
    for (const FaultRow &row : fault_rows())
        add("fault." + std::string(row.name), faults.fired(row.kind));
    return text;
}

}  // namespace loopnfsd
