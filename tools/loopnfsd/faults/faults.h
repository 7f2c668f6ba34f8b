// SPDX-License-Identifier: Apache-2.0
// The faults that are switched on, and whom they hit.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/faults/fault_spec.h"

namespace loopnfsd {

// What befalls one call.
struct CallFaults {
    bool cut = false;         // not executed, connection closed
    bool drop_reply = false;  // executed, then the connection is closed
    bool oversize = false;
    bool undersize = false;
    bool rubbish = false;
    bool rubbish_record = false;
    bool wrong_xid = false;
    std::optional<uint32_t> nfs_status;
    std::optional<RpcError> rpc_error;
};

class Faults {
  public:
    // seed: of the rubbish.
    explicit Faults(uint64_t seed = 1) : random_(seed) {}

    // Switches a fault on. A number replaces the one set before for the same addresses; those that count calls add up.
    void add(const Fault &fault);
    // Switches off all faults of a name, or all when it is empty. False when there is no such name.
    bool clear(std::string_view name);

    // path is the number of the address, 1 for the first, that the call came in on.
    bool on(FaultKind kind, unsigned path) const { return find(kind, path) != nullptr; }
    std::optional<uint64_t> number(FaultKind kind, unsigned path) const;

    // The same for a fault that takes effect just now, so that it is counted.
    bool hit(FaultKind kind, unsigned path);
    // number() of a fault with a count, one less of which is left afterwards.
    bool use_up(FaultKind kind, unsigned path);

    // To be asked once for every call, since this counts.
    CallFaults befall(const ProcedureRow *procedure, unsigned path);
    // The same for every operation of a compound, which is one call; only faults that name the operation hit it.
    void befall_operation(const ProcedureRow &operation, unsigned path, CallFaults &call);

    uint64_t fired(FaultKind kind) const { return fired_[static_cast<std::size_t>(kind)]; }
    void note(FaultKind kind, uint64_t times = 1) { fired_[static_cast<std::size_t>(kind)] += times; }
    void reset_counters() { fired_ = {}; }

    std::vector<std::byte> rubbish();

  private:
    const Fault *find(FaultKind kind, unsigned path) const;
    static bool strikes(Fault &fault, const ProcedureRow *procedure, unsigned path);
    void strike(const Fault &fault, CallFaults &call);

    std::vector<Fault> faults_;
    std::array<uint64_t, kFaultKinds> fired_{};
    std::mt19937_64 random_;
};

}  // namespace loopnfsd
