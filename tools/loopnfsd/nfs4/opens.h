// SPDX-License-Identifier: Apache-2.0
// What is open, and the stateids that say so (RFC 8881 sections 8.2 and 9).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>

#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"
#include "tools/loopnfsd/base/nfs4_numbers.h"
#include "tools/loopnfsd/store/handles.h"

namespace loopnfsd::nfs4 {

constexpr uint32_t kShareRead = 1;
constexpr uint32_t kShareWrite = 2;

struct StateId {
    uint32_t sequence = 0;
    uint32_t boot = 0;  // "other": the start of the server that gave it out, and a number
    uint64_t number = 0;

    bool operator==(const StateId &) const = default;

    static constexpr uint32_t kAllOnes = 0xFFFFFFFF;
    bool is_anonymous() const { return *this == StateId{}; }
    bool is_bypass() const { return *this == StateId{kAllOnes, kAllOnes, ~uint64_t{0}}; }
    bool is_special() const { return is_anonymous() || is_bypass(); }
    bool is_current() const { return *this == StateId{1, 0, 0}; }
};

bool get_state_id(nfstdm::xdr::Reader &in, StateId &state);
void put_state_id(nfstdm::xdr::Writer &out, const StateId &state);

struct Open {
    StateId id;
    uint64_t client = 0;
    std::string owner;
    FileKey file;
    uint32_t access = 0;
    uint32_t deny = 0;
    bool revoked = false;
};

class Opens {
  public:
    // What a stateid stands for; status tells why it stands for nothing.
    struct Found {
        Status status = Status::ok;
        Open *open = nullptr;
    };
    Found find(uint64_t client, const StateId &state, uint32_t boot);

    // Opens a file, or for more what its owner has open already; SHARE_DENIED when another does not want that.
    Found open(uint64_t client, std::string_view owner, const FileKey &file, uint32_t access, uint32_t deny,
               uint32_t boot);
    void close(const Open &open);

    void remove(uint64_t client);  // all that is its
    void revoke_all();             // as when leases have run out
    bool any_revoked(uint64_t client) const;
    bool any_open(uint64_t client) const;
    void clear() { opens_.clear(); }
    std::size_t count() const { return opens_.size(); }

  private:
    std::list<Open> opens_;
    uint64_t last_ = 0;
};

}  // namespace loopnfsd::nfs4
