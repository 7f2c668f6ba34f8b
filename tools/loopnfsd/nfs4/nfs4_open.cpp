// SPDX-License-Identifier: Apache-2.0
// OPEN, CLOSE, OPEN_DOWNGRADE, TEST_STATEID, FREE_STATEID.
#include "tools/loopnfsd/nfs4/nfs4.h"

namespace loopnfsd::nfs4 {

namespace {

constexpr uint32_t kWantDelegations = 0xFF00;  // of the access: what is said about them
constexpr uint32_t kShareMaximum = 3;
constexpr uint32_t kResultFlags = 0;
constexpr uint32_t kNoDelegation = 0;
constexpr uint32_t kNoDelegationBecause = 3;  // OPEN_DELEGATE_NONE_EXT
constexpr uint32_t kNotWanted = 0;
constexpr uint32_t kStateIdsMaximum = 1024;
constexpr StateId kClosed{StateId::kAllOnes, 0, 0};  // RFC 8881 section 8.2.3

}  // namespace

enum class Creation : uint32_t { unchecked = 0, guarded = 1, exclusive = 2, exclusive_with_attributes = 3 };
enum class Claim : uint32_t { by_name = 0, previous = 1, by_handle = 4 };

struct Nfs4Service::OpenArguments {
    uint32_t access = 0;
    bool delegation_named = false;  // the caller said something about delegations
    uint32_t deny = 0;
    std::string_view owner;
    bool create = false;
    Creation creation = Creation::unchecked;
    Bytes verifier;
    ChangedAttributes changed;
    Bitmap given;
    Claim claim = Claim::by_name;
    std::string_view name;

    bool exclusive() const {
        return creation == Creation::exclusive || creation == Creation::exclusive_with_attributes;
    }
};

// status: of arguments that could be read and make no sense.
bool Nfs4Service::get_open_arguments(Reader &in, OpenArguments &arguments, Status &status) {
    uint32_t word = 0;
    uint64_t client = 0;  // not looked at since minor version 1: the session tells
    if (!in.get_u32(word) || !in.get_u32(arguments.access) || !in.get_u32(arguments.deny) || !in.get_u64(client) ||
        !in.get_string(arguments.owner, nfstdm::nfs4::kOpaqueMaximum) || !in.get_bool(arguments.create))
        return false;
    arguments.delegation_named = (arguments.access & kWantDelegations) != 0;
    arguments.access &= ~kWantDelegations;
    if (arguments.access == 0 || arguments.access > kShareMaximum || arguments.deny > kShareMaximum)
        status = Status::inval;
    if (arguments.create) {
        if (!in.get_u32(word) || word > static_cast<uint32_t>(Creation::exclusive_with_attributes)) return false;
        arguments.creation = static_cast<Creation>(word);
        if (arguments.exclusive() && !in.get_fixed(arguments.verifier, kVerifierSize)) return false;
        Status changes = Status::ok;
        if (arguments.creation != Creation::exclusive) changes = get_changes(in, arguments.changed, arguments.given);
        if (changes == Status::badxdr) return false;
        if (changes != Status::ok) status = changes;
    }
    if (!in.get_u32(word)) return false;
    arguments.claim = static_cast<Claim>(word);
    switch (arguments.claim) {
        case Claim::by_name:
            return in.get_string(arguments.name, in.left());
        case Claim::previous:
            return in.get_u32(word);  // the delegation there was
        case Claim::by_handle:
            return true;
    }
    status = Status::notsupp;
    return true;
}

// RFC 8881 sections 8.4.2 and 18.51.3: what was open can be had back in grace, new opens only afterwards.
Status Nfs4Service::may_open(Compound &compound, const OpenArguments &arguments) {
    const Client *client = clients_.find(compound.session->client);
    if (client == nullptr) return Status::badsession;
    if (arguments.claim == Claim::previous) return clients_.may_reclaim(*client) ? Status::ok : Status::no_grace;
    return clients_.in_grace() || !client->reclaim_complete ? Status::grace : Status::ok;
}

Nfs4Service::Result<Object> Nfs4Service::make_file(Compound &compound, const OpenArguments &arguments, Folder &folder) {
    ChangedAttributes changed = arguments.changed;
    if (arguments.exclusive()) {
        const ChangedAttributes times = times_of_verifier(arguments.verifier);
        changed.access = times.access;
        changed.modification = times.modification;
    }
    const Call &call = compound.call;
    const NfsStatus allowed = files_.allow(call, *folder.object.home, folder.object.status, kWantWrite | kWantExecute);
    const auto there = files_.find_child(call, folder, arguments.name);
    if (!there.ok() && allowed != NfsStatus::ok) return from(allowed);
    MadeObject made = files_.create_file(call, folder, arguments.name, changed);
    if (made.status == NfsStatus::exist && arguments.creation == Creation::unchecked) {
        if (there.ok() && !there->is_regular()) return check_access(compound, *there, arguments);
        made = files_.reuse_file(call, folder, arguments.name, changed);
        if (made.status == NfsStatus::ok) {
            const Status status = check_access(compound, *made.object, arguments);
            if (status != Status::ok) return status;
        }
    }
    if (made.status == NfsStatus::exist && arguments.exclusive())
        made = files_.repeat_exclusive(folder, arguments.name, changed);
    if (made.status != NfsStatus::ok) return from(made.status);
    return std::move(*made.object);
}

// That it is a file, and the caller may do with it what he wants.
Status Nfs4Service::check_access(Compound &compound, const Object &object, const OpenArguments &arguments) {
    if (object.is_directory()) return Status::isdir;
    if (object.is_link()) return Status::symlink;
    if (!object.is_regular()) return Status::wrong_type;
    unsigned want = 0;
    if ((arguments.access & kShareRead) != 0) want |= kWantRead;
    if ((arguments.access & kShareWrite) != 0) want |= kWantWrite;
    return from(files_.allow(compound.call, *object.home, object.status, want));
}

// change: change_info4 of the directory.
Nfs4Service::Result<Object> Nfs4Service::find_or_make(Compound &compound, const OpenArguments &arguments,
                                                      Writer &change) {
    if (arguments.claim != Claim::by_name) {
        auto object = current_object(compound);
        if (!object.ok()) return object;
        if (const Status status = check_access(compound, *object, arguments); status != Status::ok) return status;
        change.put_bool(false);
        change.put_u64(0);
        change.put_u64(0);
        return object;
    }
    auto in = folder(compound, compound.current);
    if (!in.ok()) return in.status == Status::rofs && !arguments.create ? Status::isdir : in.status;
    if (const Status status = check_component(arguments.name); status != Status::ok) return status;
    Result<Object> object = Status::ok;
    if (arguments.create) {
        object = make_file(compound, arguments, *in);
    } else {
        auto found = files_.find_child(compound.call, *in, arguments.name);
        if (!found.ok()) return from(found.status());
        if (const Status status = check_access(compound, *found, arguments); status != Status::ok) return status;
        object = std::move(*found);
    }
    put_change(change, *in);
    return object;
}

Status Nfs4Service::open(Compound &compound) {
    OpenArguments arguments;
    Status status = Status::ok;
    if (!get_open_arguments(compound.in, arguments, status)) return Status::badxdr;
    if (status == Status::ok) status = may_open(compound, arguments);
    if (status != Status::ok) return status;
    Writer change;
    auto object = find_or_make(compound, arguments, change);
    if (!object.ok()) return object.status;
    const auto opened = opens_.open(compound.session->client, arguments.owner, object->key, arguments.access,
                                    arguments.deny, clients_.boot());
    if (opened.status != Status::ok) return opened.status;
    enter(compound, object->key);
    compound.state = opened.open->id;
    Writer &out = compound.out;
    put_state_id(out, opened.open->id);
    out.put_fixed(change.bytes());
    out.put_u32(kResultFlags);
    arguments.given.put(out);
    out.put_u32(arguments.delegation_named ? kNoDelegationBecause : kNoDelegation);
    if (arguments.delegation_named) out.put_u32(kNotWanted);
    return Status::ok;
}

Opens::Found Nfs4Service::find_open(Compound &compound, const StateId &given) {
    StateId state = given;
    if (state.is_current()) state = compound.state;
    if (state.is_special() || state.is_current()) return {Status::bad_stateid};
    auto found = opens_.find(compound.session->client, state, clients_.boot());
    if (found.status != Status::ok) return found;
    const auto key = decode_handle(compound.current);
    if (!key || *key != found.open->file) return {Status::bad_stateid};
    return found;
}

Status Nfs4Service::check_state(Compound &compound, const StateId &state, uint32_t access) {
    if (compound.current.empty()) return Status::nofilehandle;
    if (state.is_special()) return clients_.in_grace() ? Status::grace : Status::ok;
    const auto found = find_open(compound, state);
    if (found.status != Status::ok) return found.status;
    return (found.open->access & access) == access ? Status::ok : Status::openmode;
}

Status Nfs4Service::close(Compound &compound) {
    uint32_t sequence = 0;  // not looked at since minor version 1
    StateId state;
    if (!compound.in.get_u32(sequence) || !get_state_id(compound.in, state)) return Status::badxdr;
    if (compound.current.empty()) return Status::nofilehandle;
    const auto found = find_open(compound, state);
    if (found.status != Status::ok) return found.status;
    opens_.close(*found.open);
    compound.state = {};
    put_state_id(compound.out, kClosed);
    return Status::ok;
}

Status Nfs4Service::open_downgrade(Compound &compound) {
    StateId state;
    uint32_t sequence = 0;
    uint32_t access = 0;
    uint32_t deny = 0;
    Reader &in = compound.in;
    if (!get_state_id(in, state) || !in.get_u32(sequence) || !in.get_u32(access) || !in.get_u32(deny))
        return Status::badxdr;
    if (compound.current.empty()) return Status::nofilehandle;
    const auto found = find_open(compound, state);
    if (found.status != Status::ok) return found.status;
    access &= ~kWantDelegations;
    const bool less = access != 0 && (access & ~found.open->access) == 0 && (deny & ~found.open->deny) == 0;
    if (!less) return Status::inval;
    found.open->access = access;
    found.open->deny = deny;
    ++found.open->id.sequence;
    compound.state = found.open->id;
    put_state_id(compound.out, found.open->id);
    return Status::ok;
}

Status Nfs4Service::test_stateid(Compound &compound) {
    uint32_t count = 0;
    if (!compound.in.get_u32(count) || count > kStateIdsMaximum) return Status::badxdr;
    Writer results;
    results.put_u32(count);
    for (; count > 0; --count) {
        StateId state;
        if (!get_state_id(compound.in, state)) return Status::badxdr;
        const Status status = opens_.find(compound.session->client, state, clients_.boot()).status;
        results.put_u32(static_cast<uint32_t>(status));
    }
    compound.out.put_fixed(results.bytes());
    return Status::ok;
}

// Only what was taken away can be freed; what is open is closed.
Status Nfs4Service::free_stateid(Compound &compound) {
    StateId state;
    if (!get_state_id(compound.in, state)) return Status::badxdr;
    const auto found = opens_.find(compound.session->client, state, clients_.boot());
    if (found.open == nullptr) return Status::bad_stateid;
    if (!found.open->revoked) return Status::locks_held;
    opens_.close(*found.open);
    return Status::ok;
}

}  // namespace loopnfsd::nfs4
