// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "tools/loopnfsd/faults/faults.h"
#include "tools/loopnfsd/wire/call.h"

namespace loopnfsd {

// What tests ask a server about afterwards.
struct Statistics {
    std::map<std::string, uint64_t, std::less<>> calls;  // executed or not, by procedure
    uint64_t unknown_calls = 0;                          // of programs, versions, procedures that are not served
    uint64_t broken_records = 0;                         // that were no calls
    uint64_t connections = 0;                            // accepted
    uint64_t tls_connections = 0;                        // whose TLS handshake was done
    uint64_t tls_resumed = 0;                            // of them, those that resumed a session
    uint64_t bytes_received = 0;
    uint64_t bytes_sent = 0;
    std::map<unsigned, uint64_t> bytes_by_path;  // both ways together
    Credentials last_caller;

    void reset();

    void received(unsigned path, uint64_t bytes);
    void sent(unsigned path, uint64_t bytes);

    // "connections=1 ... READ=5 fault.status=1": only procedures that were called and faults that fired are named.
    std::string line(const Faults &faults) const;
};

}  // namespace loopnfsd
