// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs4/clients.h"

#include <algorithm>

#include "nfstdm/base/random.h"
#include "nfstdm/xdr/writer.h"

namespace loopnfsd::nfs4 {

Clients::Clients() : boot_(static_cast<uint32_t>(nfstdm::random_number())) {}

Client *Clients::known_owner(std::string_view owner) {
    const auto found =
        std::ranges::find_if(clients_, [&](const auto &each) { return each->confirmed && each->owner == owner; });
    return found == clients_.end() ? nullptr : found->get();
}

Client &Clients::introduce(std::string_view owner, uint64_t verifier) {
    Client *known = known_owner(owner);
    if (known != nullptr && known->verifier == verifier) return *known;
    std::erase_if(clients_, [&](const auto &each) { return !each->confirmed && each->owner == owner; });
    clients_.push_back(std::make_unique<Client>());
    Client &client = *clients_.back();
    client.id = uint64_t{boot_} << 32 | ++last_;
    client.owner = owner;
    client.verifier = verifier;
    return client;
}

Client *Clients::find(uint64_t id) {
    const auto found = std::ranges::find_if(clients_, [&](const auto &each) { return each->id == id; });
    return found == clients_.end() ? nullptr : found->get();
}

void Clients::remove(uint64_t id) {
    std::erase_if(sessions_, [&](const auto &each) { return each->client == id; });
    std::erase_if(clients_, [&](const auto &each) { return each->id == id; });
}

std::optional<uint64_t> Clients::confirm(Client &client) {
    if (client.confirmed) return std::nullopt;
    const Client *before = known_owner(client.owner);
    client.confirmed = true;
    if (before == nullptr) return std::nullopt;
    const uint64_t gone = before->id;
    remove(gone);
    return gone;
}

Session &Clients::create(Client &client, const ChannelSizes &fore) {
    sessions_.push_back(std::make_unique<Session>());
    Session &session = *sessions_.back();
    nfstdm::xdr::Writer id;
    id.put_u64(client.id);
    id.put_u64(++last_);
    std::ranges::copy(id.bytes(), session.id.begin());
    session.client = client.id;
    session.fore = fore;
    session.slots.resize(fore.requests);
    return session;
}

Session *Clients::find(const SessionId &id) {
    const auto found = std::ranges::find_if(sessions_, [&](const auto &each) { return each->id == id; });
    return found == sessions_.end() ? nullptr : found->get();
}

bool Clients::has_sessions(uint64_t client) const {
    return std::ranges::any_of(sessions_, [&](const auto &each) { return each->client == client; });
}

bool Clients::remove(const SessionId &id) {
    return std::erase_if(sessions_, [&](const auto &each) { return each->id == id; }) > 0;
}

void Clients::restart(std::chrono::seconds grace) {
    awaited_.clear();
    for (const auto &client : clients_)
        if (client->confirmed) awaited_.insert(client->owner);
    grace_end_ = Clock::now() + grace;
    forget();
    ++boot_;
}

bool Clients::in_grace() {
    if (!awaited_.empty() && Clock::now() >= grace_end_) awaited_.clear();
    return !awaited_.empty();
}

bool Clients::may_reclaim(const Client &client) {
    return in_grace() && !client.reclaim_complete && awaited_.contains(client.owner);
}

void Clients::complete(Client &client) {
    client.reclaim_complete = true;
    if (const auto found = awaited_.find(client.owner); found != awaited_.end()) awaited_.erase(found);
}

void Clients::forget() {
    sessions_.clear();
    clients_.clear();
}

}  // namespace loopnfsd::nfs4
