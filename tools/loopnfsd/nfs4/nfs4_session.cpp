// SPDX-License-Identifier: Apache-2.0
// EXCHANGE_ID, CREATE_SESSION, DESTROY_SESSION, DESTROY_CLIENTID, BIND_CONN_TO_SESSION, SEQUENCE, RECLAIM_COMPLETE.
#include <unistd.h>

#include <algorithm>
#include <string>

#include "tools/loopnfsd/nfs4/nfs4.h"

namespace loopnfsd::nfs4 {

namespace {

constexpr std::size_t kImplementationMaximum = 4096;

// EXCHANGE_ID, RFC 8881 section 18.35.
constexpr uint32_t kUpdateConfirmed = 0x40000000;
constexpr uint32_t kConfirmed = 0x80000000;
constexpr uint32_t kUseNonPnfs = 0x00010000;
constexpr uint32_t kNoProtection = 0;  // SP4_NONE

// BIND_CONN_TO_SESSION, RFC 8881 section 18.34.
constexpr uint32_t kForeChannel = 1;
constexpr uint32_t kForeOrBoth = 3;
constexpr uint32_t kBoth = 7;

// SEQUENCE, RFC 8881 section 18.46.
constexpr uint32_t kAllStateRevoked = 0x00000008;

constexpr std::size_t kAroundData = 4096;  // of a READ or WRITE, and more than any other request needs
constexpr uint32_t kOperationsMaximum = 128;

}  // namespace

bool Nfs4Service::get_session_id(Reader &in, SessionId &id) {
    std::span<const std::byte> bytes;
    if (!in.get_fixed(bytes, id.size())) return false;
    std::ranges::copy(bytes, id.begin());
    return true;
}

bool Nfs4Service::get_channel(Reader &in, ChannelSizes &sizes) {
    uint32_t padding = 0;
    uint32_t rdma = 0;
    return in.get_u32(padding) && in.get_u32(sizes.request_maximum) && in.get_u32(sizes.response_maximum) &&
           in.get_u32(sizes.cached_maximum) && in.get_u32(sizes.operations) && in.get_u32(sizes.requests) &&
           in.get_u32(rdma) && rdma <= 1 && in.skip(rdma * sizeof(uint32_t));
}

void Nfs4Service::put_channel(Writer &out, const ChannelSizes &sizes) {
    out.put_u32(0);  // no padding in front of data
    for (const uint32_t number :
         {sizes.request_maximum, sizes.response_maximum, sizes.cached_maximum, sizes.operations, sizes.requests})
        out.put_u32(number);
    out.put_u32(0);  // no RDMA
}

ChannelSizes Nfs4Service::agree(const ChannelSizes &asked) const {
    ChannelSizes sizes;
    sizes.request_maximum = std::min<uint32_t>(asked.request_maximum, files_.settings().max_write + kAroundData);
    sizes.response_maximum = std::min<uint32_t>(asked.response_maximum, files_.settings().max_read + kAroundData);
    sizes.cached_maximum = std::min<uint32_t>(asked.cached_maximum, sizes.response_maximum);
    sizes.operations = std::min(asked.operations, kOperationsMaximum);
    sizes.requests = std::clamp(asked.requests, 1U, settings_.slots);
    return sizes;
}

Status Nfs4Service::exchange_id(Compound &compound) {
    Reader &in = compound.in;
    Bytes verifier;
    std::string_view owner;
    uint32_t flags = 0;
    uint32_t protection = 0;
    uint32_t implementations = 0;
    if (!in.get_fixed(verifier, kVerifierSize) || !in.get_string(owner, nfstdm::nfs4::kOpaqueMaximum) ||
        !in.get_u32(flags) || !in.get_u32(protection))
        return Status::badxdr;
    if (protection != kNoProtection) return Status::notsupp;
    if (!in.get_u32(implementations) || implementations > 1) return Status::badxdr;
    std::string_view ignored;
    if (implementations == 1 && !(in.get_string(ignored, kImplementationMaximum) &&
                                  in.get_string(ignored, kImplementationMaximum) && in.skip(12)))
        return Status::badxdr;
    uint64_t number = 0;
    Reader(verifier).get_u64(number);
    if ((flags & kUpdateConfirmed) != 0) {
        const Client *known = clients_.known_owner(owner);
        if (known == nullptr) return Status::noent;
        if (known->verifier != number) return Status::clid_inuse;
    }
    const Client &client = clients_.introduce(owner, number);
    Writer &out = compound.out;
    out.put_u64(client.id);
    out.put_u32(client.next_sequence);
    out.put_u32(kUseNonPnfs | (client.confirmed ? kConfirmed : 0));
    out.put_u32(kNoProtection);
    out.put_u64(0);  // server_owner4: minor id, major id
    out.put_string("loopnfsd " + std::to_string(getpid()));
    out.put_string("loopnfsd");  // server scope
    out.put_u32(0);              // nothing about the implementation
    return Status::ok;
}

Status Nfs4Service::create_session(Compound &compound) {
    Reader &in = compound.in;
    uint64_t id = 0;
    uint32_t sequence = 0;
    uint32_t flags = 0;
    ChannelSizes fore;
    ChannelSizes back;
    uint32_t program = 0;
    if (!in.get_u64(id) || !in.get_u32(sequence) || !in.get_u32(flags) || !get_channel(in, fore) ||
        !get_channel(in, back) || !in.get_u32(program))
        return Status::badxdr;
    in.skip(in.left());  // how callbacks identify themselves: there are none, and the operation stands alone
    Client *client = clients_.find(id);
    if (client == nullptr) return Status::stale_clientid;
    Writer &out = compound.out;
    if (sequence + 1 == client->next_sequence && !client->created.empty()) {
        out.put_fixed(client->created);
        return Status::ok;
    }
    if (sequence != client->next_sequence) return Status::seq_misordered;
    if (const auto replaced = clients_.confirm(*client)) {
        opens_.remove(*replaced);
        if (compound.session != nullptr && compound.session_client == *replaced) compound.leave_session();
    }
    const Session &session = clients_.create(*client, agree(fore));
    Writer results;
    results.put_fixed(session.id);
    results.put_u32(sequence);
    results.put_u32(0);  // neither persistent nor with a back channel
    put_channel(results, session.fore);
    put_channel(results, back);
    out.put_fixed(results.bytes());
    ++client->next_sequence;
    client->created = results.take();
    return Status::ok;
}

Status Nfs4Service::destroy_session(Compound &compound) {
    SessionId id;
    if (!get_session_id(compound.in, id)) return Status::badxdr;
    const bool own = compound.session != nullptr && compound.session->id == id;
    if (own && !compound.is_last()) return Status::not_only_op;
    if (!clients_.remove(id)) return Status::badsession;
    if (own) compound.leave_session();
    return Status::ok;
}

Status Nfs4Service::destroy_clientid(Compound &compound) {
    uint64_t id = 0;
    if (!compound.in.get_u64(id)) return Status::badxdr;
    if (clients_.find(id) == nullptr) return Status::stale_clientid;
    if (clients_.has_sessions(id) || opens_.any_open(id)) return Status::clientid_busy;
    opens_.remove(id);
    clients_.remove(id);
    return Status::ok;
}

// Whatever connection a session is used on belongs to it.
Status Nfs4Service::bind_connection(Compound &compound) {
    SessionId id;
    uint32_t direction = 0;
    bool rdma = false;
    if (!get_session_id(compound.in, id) || !compound.in.get_u32(direction) || !compound.in.get_bool(rdma))
        return Status::badxdr;
    if (clients_.find(id) == nullptr) return Status::badsession;
    if (direction != kForeChannel && direction != kForeOrBoth && direction != kBoth) return Status::inval;
    compound.out.put_fixed(id);
    compound.out.put_u32(kForeChannel);
    compound.out.put_bool(false);
    return Status::ok;
}

uint32_t Nfs4Service::status_flags(uint64_t client) const {
    return opens_.any_revoked(client) ? kAllStateRevoked : 0;
}

Status Nfs4Service::sequence(Compound &compound) {
    Reader &in = compound.in;
    SessionId id;
    uint32_t sequence = 0;
    uint32_t number = 0;
    uint32_t highest = 0;
    bool cache = false;
    if (!get_session_id(in, id) || !in.get_u32(sequence) || !in.get_u32(number) || !in.get_u32(highest) ||
        !in.get_bool(cache))
        return Status::badxdr;
    Session *session = clients_.find(id);
    if (session == nullptr) return Status::badsession;
    if (number >= session->slots.size()) return Status::badslot;
    if (highest >= session->slots.size()) return Status::bad_high_slot;
    Slot &slot = session->slots[number];
    const bool again = sequence == slot.sequence && slot.sequence != 0;
    if (!again && sequence != slot.sequence + 1) return Status::seq_misordered;
    if (!again && compound.count > session->fore.operations) return Status::too_many_ops;
    const auto last_slot = static_cast<uint32_t>(session->slots.size() - 1);
    Writer &out = compound.out;
    compound.session = session;
    compound.session_client = session->client;
    compound.slot = &slot;
    if (again && slot.request != compound.request) return Status::seq_false_retry;
    if (again && slot.reply) {
        compound.repeated = &*slot.reply;
        return Status::ok;
    }
    compound.uncached = again;  // which the next operation tells, RFC 8881 section 2.10.6.1.3
    if (!again) slot = {sequence, compound.request, std::nullopt};
    compound.keep = cache && !again;
    out.put_fixed(id);
    for (const uint32_t word : {sequence, number, last_slot, last_slot, status_flags(session->client)})
        out.put_u32(word);
    return Status::ok;
}

Status Nfs4Service::reclaim_complete(Compound &compound) {
    bool one_file_system = false;
    if (!compound.in.get_bool(one_file_system)) return Status::badxdr;
    Client *client = clients_.find(compound.session->client);
    if (client == nullptr) return Status::badsession;
    if (one_file_system) return compound.current.empty() ? Status::nofilehandle : Status::ok;
    if (client->reclaim_complete) return Status::complete_already;
    clients_.complete(*client);
    return Status::ok;
}

}  // namespace loopnfsd::nfs4
