// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/nfs4/fake_nfs4.h"

#include <algorithm>

#include "nfstdm/nfs4/op_table.h"
#include "tests/unit/nfs4/samples.h"

namespace nfstdm::nfs4::test {

namespace {

AttributeSet get_set_of_attributes(xdr::Reader &reader) {
    AttributeSet set;
    std::span<const std::byte> values;
    set.get(reader);
    reader.get_opaque(values, 64);
    return set;
}

SessionId get_session(xdr::Reader &reader) {
    std::span<const std::byte> bytes;
    SessionId id{};
    if (reader.get_fixed(bytes, kSessionIdSize)) std::copy(bytes.begin(), bytes.end(), id.begin());
    return id;
}

std::string get_text(xdr::Reader &reader) {
    std::string_view text;
    reader.get_string(text, kNameMaximum);
    return std::string(text);
}

}  // namespace

FakeNfs4::FakeNfs4(EventLoop &loop) : server(loop) {
    names = {{"export", 'd'}, {"file", 'f'}, {"folder", 'd'}};
    server.on_call = [this](const ReceivedCall &call) { answer(call); };
}

void FakeNfs4::restart() {
    clients_.clear();
    sessions_.clear();
    opens_.clear();
}

SessionId FakeNfs4::session_id(uint32_t number) {
    SessionId id{};
    id[0] = static_cast<std::byte>(number);
    return id;
}

void FakeNfs4::answer(const ReceivedCall &call) {
    Compound compound{xdr::Reader(call.arguments)};
    uint32_t minor = 0;
    uint32_t count = 0;
    get_text(compound.arguments);
    compound.arguments.get_u32(minor);
    compound.arguments.get_u32(count);
    NfsStatus status = minor > minor_version_maximum ? NfsStatus::minor_vers_mismatch : NfsStatus::ok;
    compound.count = count;
    uint32_t done = 0;
    while (status == NfsStatus::ok && done < count && compound.kept == nullptr) {
        uint32_t number = 0;
        compound.arguments.get_u32(number);
        const Op op = static_cast<Op>(number);
        compound.text += (done == 0 ? "" : " ") + std::string(row_of(op).name);
        compound.results.put_u32(number);
        const std::size_t at = compound.results.size();
        compound.results.put_u32(0);
        status = execute(op, compound);
        compound.results.patch_u32(at, static_cast<uint32_t>(status));
        ++done;
    }
    xdr::Writer results;
    results.put_u32(static_cast<uint32_t>(status));
    results.put_string("");
    results.put_u32(done);
    results.put_fixed(compound.results.bytes());
    Bytes bytes = compound.kept != nullptr ? *compound.kept : results.take();
    if (compound.kept == nullptr) compounds_.push_back(compound.text);
    if (compound.session != nullptr && compound.kept == nullptr)
        compound.session->answers[compound.slot] = {compound.sequence, bytes};
    if (compound.lose || (spoil && !spoil(bytes))) return server.cut(call.connection);
    xdr::Writer reply = nfstdm::test::begin_reply(call.xid);
    reply.put_fixed(bytes);
    server.reply(call.connection, reply);
}

NfsStatus FakeNfs4::execute(Op op, Compound &compound) {
    auto &failures = failures_[op];
    if (!failures.empty()) {
        const NfsStatus status = failures.front();
        failures.erase(failures.begin());
        if (op == Op::setattr && status != NfsStatus::ok) AttributeSet{}.put(compound.results);
        if (status != NfsStatus::ok) return status;
    }
    const bool fileless = op == Op::exchange_id || op == Op::create_session || op == Op::destroy_session ||
                          op == Op::destroy_clientid || op == Op::bind_conn_to_session || op == Op::sequence ||
                          op == Op::reclaim_complete;
    const NfsStatus status = fileless ? execute_session(op, compound) : execute_file(op, compound);
    if (compound.kept != nullptr) return status;
    if (status == NfsStatus::ok) ++executed_[op];
    if (auto &lost = lost_[op]; lost > 0) {
        --lost;
        compound.lose = true;
    }
    return status;
}

NfsStatus FakeNfs4::execute_session(Op op, Compound &compound) {
    auto &in = compound.arguments;
    auto &out = compound.results;
    uint64_t client = 0;
    uint32_t word = 0;
    switch (op) {
        case Op::exchange_id: {
            in.skip(8);
            uint64_t &id = owners_[get_text(in)];
            if (!clients_.contains(id) || !clients_[id]) {
                clients_.erase(id);
                clients_[id = next_client_++] = false;
            }
            samples::put_exchange_id(out, id, clients_[id], owner);
            return NfsStatus::ok;
        }
        case Op::create_session: {
            in.get_u64(client);
            if (!clients_.contains(client)) return NfsStatus::stale_clientid;
            clients_[client] = true;
            const SessionId id = session_id(next_session_++);
            sessions_[id].client = client;
            samples::put_create_session(out, id, channel_bytes, slots, operations);
            return NfsStatus::ok;
        }
        case Op::destroy_session:
            return destroy_session(compound);
        case Op::destroy_clientid:
            in.get_u64(client);
            return destroy_client(client);
        case Op::bind_conn_to_session:
            out.put_fixed(get_session(in));
            out.put_u32(1);
            out.put_bool(false);
            return NfsStatus::ok;
        case Op::reclaim_complete:
            in.get_u32(word);
            return NfsStatus::ok;
        default:
            return sequence(compound);
    }
}

// The session that a compound came in goes with it.
NfsStatus FakeNfs4::destroy_session(Compound &compound) {
    const auto found = sessions_.find(get_session(compound.arguments));
    if (found == sessions_.end()) return NfsStatus::badsession;
    if (compound.session == &found->second) compound.session = nullptr;
    sessions_.erase(found);
    return NfsStatus::ok;
}

NfsStatus FakeNfs4::destroy_client(uint64_t client) {
    if (!clients_.contains(client)) return NfsStatus::stale_clientid;
    const bool has_session =
        std::ranges::any_of(sessions_, [client](const auto &each) { return each.second.client == client; });
    if (has_session || !opens_.empty()) return NfsStatus::clientid_busy;
    clients_.erase(client);
    return NfsStatus::ok;
}

NfsStatus FakeNfs4::sequence(Compound &compound) {
    auto &in = compound.arguments;
    uint32_t highest = 0;
    uint32_t cache = 0;
    const SessionId id = get_session(in);
    in.get_u32(compound.sequence);
    in.get_u32(compound.slot);
    in.get_u32(highest);
    in.get_u32(cache);
    sequences.emplace_back(compound.slot, compound.sequence);
    asked_to_be_kept.push_back(cache != 0);
    const auto found = sessions_.find(id);
    if (found == sessions_.end()) return NfsStatus::badsession;
    if (compound.slot >= slots) return NfsStatus::badslot;
    if (compound.count > operations) return NfsStatus::too_many_ops;
    const auto &[last, answer] = found->second.answers[compound.slot];
    if (compound.sequence == last && last != 0) {
        compound.kept = &answer;
        return NfsStatus::ok;
    }
    if (compound.sequence != last + 1) return NfsStatus::seq_misordered;
    compound.session = &found->second;
    SequenceArguments told{id, compound.sequence, compound.slot};
    if (turn_sequence) turn_sequence(told);
    samples::put_sequence(compound.results, told.session, told.sequence, told.slot, slots);
    return NfsStatus::ok;
}

NfsStatus FakeNfs4::check(const StateId &state, const Compound &compound) const {
    if (state == StateId::anonymous() || (state == StateId::current() && compound.current.sequence != 0))
        return NfsStatus::ok;
    return opens_.contains(std::to_integer<uint8_t>(state.other[0])) ? NfsStatus::ok : NfsStatus::bad_stateid;
}

NfsStatus FakeNfs4::open(Compound &compound) {
    auto &in = compound.arguments;
    uint32_t word = 0;
    uint32_t create = 0;
    uint32_t claim = 0;
    uint64_t client = 0;
    in.skip(12);
    in.get_u64(client);
    const std::string opener = get_text(in);
    in.get_u32(create);
    bool lacks = false;
    if (create == 1) {
        in.get_u32(word);
        lacks = lacks_any(in);
    }
    in.get_u32(claim);
    if (lacks) return NfsStatus::attrnotsupp;
    if (claim == static_cast<uint32_t>(Claim::null)) names[compound.name = get_text(in)] = 'f';
    if (claim == static_cast<uint32_t>(Claim::previous)) in.get_u32(word);
    uint8_t &state = owned_[{compound.name, opener}];
    if (!opens_.contains(state)) state = next_open_++;
    opens_[state] = true;
    compound.current = samples::state_id(state);
    samples::put_open(compound.results, compound.current);
    return NfsStatus::ok;
}

bool FakeNfs4::lacks_any(xdr::Reader &reader) const {
    const AttributeSet given = get_set_of_attributes(reader);
    return given.without(lacking) != given;
}

NfsStatus FakeNfs4::get_range(Compound &compound, Copied &range) {
    StateId source;
    StateId destination;
    auto &in = compound.arguments;
    get_state_id(in, source);
    get_state_id(in, destination);
    in.get_u64(range.from);
    in.get_u64(range.to);
    in.get_u64(range.count);
    const NfsStatus status = check(source, compound);
    return status == NfsStatus::ok ? check(destination, compound) : status;
}

NfsStatus FakeNfs4::clone(Compound &compound) {
    Copied range;
    const NfsStatus status = get_range(compound, range);
    if (status == NfsStatus::ok) clones.push_back(range);
    return status;
}

NfsStatus FakeNfs4::copy(Compound &compound) {
    Copied range;
    const NfsStatus status = get_range(compound, range);
    bool consecutive = false;
    bool at_once = false;
    compound.arguments.get_bool(consecutive);
    compound.arguments.get_bool(at_once);
    compound.arguments.skip(4);
    if (status != NfsStatus::ok) return status;
    copies.push_back(range);
    copies_at_once.push_back(at_once);
    uint64_t verifier = 77;
    if (!copy_verifiers.empty()) {
        verifier = copy_verifiers.front();
        copy_verifiers.erase(copy_verifiers.begin());
    }
    const bool in_background = looks_until_copied > 0;
    auto &out = compound.results;
    out.put_u32(in_background ? 1 : 0);
    if (in_background) put_state_id(out, samples::state_id(200));
    out.put_u64(in_background ? 0 : std::min(range.count, copy_maximum));
    out.put_u32(copy_is_synced ? 2 : 0);
    out.put_u64(verifier);
    out.put_bool(true);
    out.put_bool(!in_background);
    return NfsStatus::ok;
}

NfsStatus FakeNfs4::look_at_copy(Compound &compound) {
    StateId state;
    get_state_id(compound.arguments, state);
    if (state.other[0] != std::byte{200}) return NfsStatus::bad_stateid;
    const bool over = --looks_until_copied <= 0;
    compound.results.put_u64(over ? std::min(copies.back().count, copy_maximum) : 1);
    compound.results.put_u32(over ? 1 : 0);
    if (over) compound.results.put_u32(static_cast<uint32_t>(copy_outcome));
    return NfsStatus::ok;
}

// The end of the file counts as a hole (RFC 7862 section 15.11.3).
NfsStatus FakeNfs4::seek(Compound &compound) {
    StateId state;
    uint64_t offset = 0;
    uint32_t wanted = 0;
    get_state_id(compound.arguments, state);
    compound.arguments.get_u64(offset);
    compound.arguments.get_u32(wanted);
    if (offset >= content.size()) return NfsStatus::nxio;
    uint64_t found = wanted == 0 ? content.size() : offset;
    for (const auto &[begin, end] : extents) {
        if (wanted == 1 && found >= begin && found < end) found = end;
        if (wanted == 0 && end > offset) found = std::min(found, std::max(begin, offset));
    }
    if (seeks_in_vain) found = offset;
    if (wanted == 0 && found == content.size()) return NfsStatus::nxio;
    compound.results.put_bool(found >= content.size());
    compound.results.put_u64(found);
    return NfsStatus::ok;
}

NfsStatus FakeNfs4::execute_file(Op op, Compound &compound) {
    auto &in = compound.arguments;
    auto &out = compound.results;
    StateId state;
    AttributeSet set;
    uint64_t offset = 0;
    uint32_t count = 0;
    NfsStatus status = NfsStatus::ok;
    const char kind = names.contains(compound.name) ? names[compound.name] : 'd';
    switch (op) {
        case Op::putfh:
            compound.name = get_text(in);
            return NfsStatus::ok;
        case Op::savefh:
            return NfsStatus::ok;
        case Op::clone:
            return clone(compound);
        case Op::copy:
            return copy(compound);
        case Op::offload_status:
            return look_at_copy(compound);
        case Op::seek:
            return seek(compound);
        case Op::putrootfh:
            compound.name = "/";
            return NfsStatus::ok;
        case Op::lookup:
            compound.name = get_text(in);
            return names.contains(compound.name) ? NfsStatus::ok : NfsStatus::noent;
        case Op::secinfo:
        case Op::secinfo_no_name:
            if (op == Op::secinfo)
                static_cast<void>(get_text(in));
            else
                in.skip(4);
            out.put_u32(static_cast<uint32_t>(kerberos_services.size()) + (offers_sys ? 1 : 0));
            if (offers_sys) out.put_u32(1);
            for (const uint32_t service : kerberos_services) {
                out.put_u32(6);
                out.put_string("\x2a\x86\x48\x86\xf7\x12\x01\x02\x02");
                out.put_u32(0);
                out.put_u32(service);
            }
            return NfsStatus::ok;
        case Op::lookupp:
            if (compound.name == "/") return NfsStatus::noent;
            compound.name = "/";
            return NfsStatus::ok;
        case Op::getfh:
            out.put_string(compound.name);
            return NfsStatus::ok;
        case Op::getattr:
            set.get(in);
            samples::put_attributes(out, set.without(lacking), kind == 'd' ? 2 : 1, content.size());
            return NfsStatus::ok;
        case Op::verify:
        case Op::nverify:
            get_set_of_attributes(in);
            if (op == Op::verify) return kind == 'd' ? NfsStatus::ok : NfsStatus::not_same;
            return kind == 'd' ? NfsStatus::same : NfsStatus::ok;
        case Op::open:
            return open(compound);
        case Op::close:
            in.get_u32(count);
            get_state_id(in, state);
            status = check(state, compound);
            if (state == StateId::current()) state = compound.current;
            opens_.erase(std::to_integer<uint8_t>(state.other[0]));
            if (status == NfsStatus::ok) put_state_id(out, {});
            return status;
        case Op::read: {
            get_state_id(in, state);
            in.get_u64(offset);
            in.get_u32(count);
            read_with.push_back(state);
            if (status = check(state, compound); status != NfsStatus::ok) return status;
            const std::string data = content.substr(std::min<std::size_t>(offset, content.size()), count);
            out.put_bool(offset + count >= content.size());
            out.put_string(data);
            return NfsStatus::ok;
        }
        case Op::write: {
            std::string_view data;
            get_state_id(in, state);
            in.get_u64(offset);
            in.get_u32(count);
            in.get_string(data, 1 << 20);
            if (status = check(state, compound); status != NfsStatus::ok) return status;
            content.resize(std::max<std::size_t>(content.size(), offset + data.size()));
            content.replace(offset, data.size(), data);
            out.put_u32(static_cast<uint32_t>(data.size()));
            out.put_u32(count);
            out.put_u64(77);
            return NfsStatus::ok;
        }
        case Op::commit:
            in.skip(12);
            out.put_u64(77);
            return NfsStatus::ok;
        case Op::create: {
            in.get_u32(count);
            const std::string name = get_text(in);
            if (lacks_any(in)) return NfsStatus::attrnotsupp;
            if (names.contains(name)) return NfsStatus::exist;
            names[compound.name = name] = 'd';
            samples::put_change(out);
            AttributeSet{}.put(out);
            return NfsStatus::ok;
        }
        case Op::remove:
            if (kind != 'd') return NfsStatus::notdir;
            if (names.erase(get_text(in)) == 0) return NfsStatus::noent;
            samples::put_change(out);
            return NfsStatus::ok;
        case Op::setattr:
            get_state_id(in, state);
            set = get_set_of_attributes(in);
            status = check(state, compound);
            if (set.has(Attribute::size)) resized_with.push_back(state);
            if (set.without(lacking) != set) status = NfsStatus::attrnotsupp;
            AttributeSet{}.put(out);
            return status;
        case Op::readlink:
            out.put_string("target");
            return NfsStatus::ok;
        case Op::readdir:
            in.skip(24);
            set.get(in);
            out.put_u64(0);
            for (const auto &[name, what] : names) {
                out.put_bool(true);
                out.put_u64(3);
                out.put_string(name);
                samples::put_attributes(out, set.without(lacking), what == 'd' ? 2 : 1);
            }
            out.put_bool(false);
            out.put_bool(true);
            return NfsStatus::ok;
        default:
            return NfsStatus::op_illegal;
    }
}

}  // namespace nfstdm::nfs4::test
