// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs4/opens.h"

#include <algorithm>

namespace loopnfsd::nfs4 {

bool get_state_id(nfstdm::xdr::Reader &in, StateId &state) {
    return in.get_u32(state.sequence) && in.get_u32(state.boot) && in.get_u64(state.number);
}

void put_state_id(nfstdm::xdr::Writer &out, const StateId &state) {
    out.put_u32(state.sequence);
    out.put_u32(state.boot);
    out.put_u64(state.number);
}

Opens::Found Opens::find(uint64_t client, const StateId &state, uint32_t boot) {
    if (state.boot != boot) return {Status::stale_stateid};
    const auto open = std::ranges::find_if(
        opens_, [&](const Open &each) { return each.id.number == state.number && each.client == client; });
    if (open == opens_.end()) return {Status::bad_stateid};
    if (open->revoked) return {Status::expired, &*open};
    if (state.sequence > open->id.sequence) return {Status::bad_stateid};
    if (state.sequence != 0 && state.sequence < open->id.sequence) return {Status::old_stateid};
    return {Status::ok, &*open};
}

Opens::Found Opens::open(uint64_t client, std::string_view owner, const FileKey &file, uint32_t access, uint32_t deny,
                         uint32_t boot) {
    Open *mine = nullptr;
    for (Open &each : opens_) {
        if (each.revoked || each.file != file) continue;
        if (each.client == client && each.owner == owner)
            mine = &each;
        else if ((each.deny & access) != 0 || (each.access & deny) != 0)
            return {Status::share_denied};
    }
    if (mine == nullptr) {
        mine = &opens_.emplace_back();
        mine->id = {0, boot, ++last_};
        mine->client = client;
        mine->owner = owner;
        mine->file = file;
    }
    ++mine->id.sequence;
    mine->access |= access;
    mine->deny |= deny;
    return {Status::ok, mine};
}

void Opens::close(const Open &open) {
    opens_.remove_if([&](const Open &each) { return &each == &open; });
}

void Opens::remove(uint64_t client) {
    opens_.remove_if([&](const Open &each) { return each.client == client; });
}

void Opens::revoke_all() {
    for (Open &each : opens_)
        each.revoked = true;
}

bool Opens::any_revoked(uint64_t client) const {
    return std::ranges::any_of(opens_, [&](const Open &each) { return each.client == client && each.revoked; });
}

bool Opens::any_open(uint64_t client) const {
    return std::ranges::any_of(opens_, [&](const Open &each) { return each.client == client && !each.revoked; });
}

}  // namespace loopnfsd::nfs4
