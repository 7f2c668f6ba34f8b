// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/statistics.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/base/nfs4_numbers.h"

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
    add("tls", tls_connections);
    add("tls-resumed", tls_resumed);
    add("received", bytes_received);
    add("sent", bytes_sent);
    for (const auto &[path, bytes] : bytes_by_path)
        add("path." + std::to_string(path), bytes);
    // In the order of the procedures, those of NFSv4 alone behind them: some names are of both.
    std::vector<std::string_view> names;
    for (const auto rows : {all_procedures(), nfs4::all_operations()})
        for (const ProcedureRow &row : rows)
            if (std::ranges::find(names, row.name) == names.end()) names.push_back(row.name);
    for (const std::string_view name : names)
        if (const auto found = calls.find(name); found != calls.end()) add(name, found->second);
    add("unknown", unknown_calls);
    add("broken", broken_records);
    for (const FaultRow &row : fault_rows())
        add("fault." + std::string(row.name), faults.fired(row.kind));
    return text;
}

}  // namespace loopnfsd
