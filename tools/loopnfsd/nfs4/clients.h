// SPDX-License-Identifier: Apache-2.0
// Who uses the server: client ids, and sessions with the replies they keep (RFC 8881 sections 2.4 and 2.10).
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/base/nfs4_numbers.h"
#include "tools/loopnfsd/wire/call.h"

namespace loopnfsd::nfs4 {

constexpr std::size_t kSessionIdSize = 16;
using SessionId = std::array<std::byte, kSessionIdSize>;

// A compound's results as they went out.
struct KeptReply {
    std::vector<std::byte> results;
    Bulk bulk;
};

struct Slot {
    uint32_t sequence = 0;           // of the last request; 0 = none yet
    std::size_t request = 0;         // what tells it from another with the same number
    std::optional<KeptReply> reply;  // when it was to be kept
};

struct ChannelSizes {
    uint32_t request_maximum = 0;
    uint32_t response_maximum = 0;
    uint32_t cached_maximum = 0;
    uint32_t operations = 0;
    uint32_t requests = 0;
};

struct Client {
    uint64_t id = 0;
    std::string owner;
    uint64_t verifier = 0;
    bool confirmed = false;
    uint32_t next_sequence = 1;      // of CREATE_SESSION
    std::vector<std::byte> created;  // the results of the last one
    bool reclaim_complete = false;
};

struct Session {
    SessionId id{};
    uint64_t client = 0;
    ChannelSizes fore;
    std::vector<Slot> slots;
};

class Clients {
  public:
    using Clock = std::chrono::steady_clock;

    Clients();

    // Numbers that tell this start of the server from others; in every id it gives out.
    uint32_t boot() const { return boot_; }

    // A client of this owner: as it is known, or a new one that a session must confirm.
    Client &introduce(std::string_view owner, uint64_t verifier);
    Client *known_owner(std::string_view owner);  // confirmed
    Client *find(uint64_t id);
    void remove(uint64_t id);  // with its sessions

    // Makes the client known for good: whoever had its owner's name before is gone, whose id is given.
    std::optional<uint64_t> confirm(Client &client);

    Session &create(Client &client, const ChannelSizes &fore);
    Session *find(const SessionId &id);
    bool has_sessions(uint64_t client) const;
    bool remove(const SessionId &id);  // false: there is none
    void remove_sessions() { sessions_.clear(); }

    // As a start of the server does it: everybody is forgotten, and who was known may have back what was his, until
    // all of them said that they have it, or the time is up.
    void restart(std::chrono::seconds grace);
    bool in_grace();
    bool may_reclaim(const Client &client);
    void complete(Client &client);  // RECLAIM_COMPLETE
    void end_grace() { awaited_.clear(); }
    // Everybody is forgotten, as when leases have run out.
    void forget();

  private:
    uint32_t boot_ = 0;
    uint64_t last_ = 0;  // id that was given out, of whatever kind
    std::vector<std::unique_ptr<Client>> clients_;
    std::vector<std::unique_ptr<Session>> sessions_;
    std::set<std::string, std::less<>> awaited_;  // owners that may reclaim
    Clock::time_point grace_end_{};
};

}  // namespace loopnfsd::nfs4
