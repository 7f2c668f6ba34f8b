// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs4/nfs4.h"

#include <algorithm>
#include <functional>

#include "nfstdm/nfs3/constants.h"

namespace loopnfsd::nfs4 {

namespace {

constexpr std::size_t kTagMaximum = 1024;
constexpr uint32_t kOperationsMaximum = 256;  // of a compound without a session
constexpr uint32_t kLowestMinor = 1;
constexpr uint32_t kHighestMinor = 2;

// Tells a request sent again from another one; a hash does, since nobody here forges them.
std::size_t fingerprint(nfstdm::xdr::Reader in) {
    constexpr std::size_t kLookedAt = 1024;  // bytes in front of what may be a mebibyte
    const std::size_t size = in.left();
    std::span<const std::byte> bytes;
    in.get_fixed(bytes, std::min(size, kLookedAt) / 4 * 4);
    const std::string_view text(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    return std::hash<std::string_view>{}(text) ^ size;
}

bool is_operation_of(uint32_t minor, uint32_t op) {
    return op >= kFirstOp && op <= (minor == kLowestMinor ? kLastOp1 : kLastOp2);
}

}  // namespace

enum class Needs : uint8_t {
    session,  // a SEQUENCE in front
    nothing,  // but to be alone when there is none
    first,    // SEQUENCE itself
};

struct Nfs4Service::Row {
    Op op;
    Needs needs;
    Status (Nfs4Service::*operation)(Compound &compound);
};

const Nfs4Service::Row Nfs4Service::kRows[] = {
    {Op::access, Needs::session, &Nfs4Service::access},
    {Op::close, Needs::session, &Nfs4Service::close},
    {Op::commit, Needs::session, &Nfs4Service::commit},
    {Op::create, Needs::session, &Nfs4Service::create},
    {Op::getattr, Needs::session, &Nfs4Service::getattr},
    {Op::getfh, Needs::session, &Nfs4Service::getfh},
    {Op::link, Needs::session, &Nfs4Service::link},
    {Op::lookup, Needs::session, &Nfs4Service::lookup},
    {Op::lookupp, Needs::session, &Nfs4Service::lookupp},
    {Op::nverify, Needs::session, &Nfs4Service::nverify},
    {Op::open, Needs::session, &Nfs4Service::open},
    {Op::open_downgrade, Needs::session, &Nfs4Service::open_downgrade},
    {Op::putfh, Needs::session, &Nfs4Service::putfh},
    {Op::putpubfh, Needs::session, &Nfs4Service::putrootfh},
    {Op::putrootfh, Needs::session, &Nfs4Service::putrootfh},
    {Op::read, Needs::session, &Nfs4Service::read},
    {Op::readdir, Needs::session, &Nfs4Service::readdir},
    {Op::readlink, Needs::session, &Nfs4Service::readlink},
    {Op::remove, Needs::session, &Nfs4Service::remove},
    {Op::rename, Needs::session, &Nfs4Service::rename},
    {Op::restorefh, Needs::session, &Nfs4Service::restorefh},
    {Op::savefh, Needs::session, &Nfs4Service::savefh},
    {Op::setattr, Needs::session, &Nfs4Service::setattr},
    {Op::verify, Needs::session, &Nfs4Service::verify},
    {Op::write, Needs::session, &Nfs4Service::write},
    {Op::bind_conn_to_session, Needs::nothing, &Nfs4Service::bind_connection},
    {Op::exchange_id, Needs::nothing, &Nfs4Service::exchange_id},
    {Op::create_session, Needs::nothing, &Nfs4Service::create_session},
    {Op::destroy_session, Needs::nothing, &Nfs4Service::destroy_session},
    {Op::free_stateid, Needs::session, &Nfs4Service::free_stateid},
    {Op::secinfo_no_name, Needs::session, &Nfs4Service::secinfo_no_name},
    {Op::sequence, Needs::first, &Nfs4Service::sequence},
    {Op::test_stateid, Needs::session, &Nfs4Service::test_stateid},
    {Op::destroy_clientid, Needs::nothing, &Nfs4Service::destroy_clientid},
    {Op::reclaim_complete, Needs::session, &Nfs4Service::reclaim_complete},
    {Op::copy, Needs::session, &Nfs4Service::copy},
    {Op::offload_status, Needs::session, &Nfs4Service::offload_status},
    {Op::seek, Needs::session, &Nfs4Service::seek},
    {Op::clone, Needs::session, &Nfs4Service::clone},
};

const Nfs4Service::Row *Nfs4Service::find_row(uint32_t op) {
    const auto *row = std::ranges::find(kRows, static_cast<Op>(op), &Row::op);
    return row == std::end(kRows) ? nullptr : row;
}

Nfs4Service::Nfs4Service(SharedFiles &files, const Settings &settings, OperationListener begun)
    : files_(files), settings_(settings), begun_(std::move(begun)), root_(files.exports()) {}

uint32_t Nfs4Service::number() const {
    return nfstdm::nfs3::kProgram;
}

void Nfs4Service::restart() {
    clients_.restart(settings_.grace);
    opens_.clear();
    running_copies_.clear();
    files_.forget_unstable();
}

void Nfs4Service::expire() {
    opens_.revoke_all();
}

void Nfs4Service::forget_clients() {
    clients_.forget();
    opens_.clear();
    running_copies_.clear();
}

bool Nfs4Service::run(uint32_t procedure, Call &call) {
    Reader &in = call.arguments;
    if (procedure != kProcCompound) return in.finished();
    Compound compound{call, in};
    compound.request = fingerprint(in);
    std::string_view tag;
    if (!in.get_string(tag, kTagMaximum) || !in.get_u32(compound.minor) || !in.get_u32(compound.count)) return false;
    uint32_t done = 0;
    const Status status = run_all(compound, done);
    finish(compound, status, tag, done);
    return true;
}

Status Nfs4Service::run_all(Compound &compound, uint32_t &done) {
    if (compound.minor < kLowestMinor || compound.minor > kHighestMinor) return Status::minor_vers_mismatch;
    if (compound.count > kOperationsMaximum) return Status::too_many_ops;
    for (; compound.index < compound.count; ++compound.index) {
        const Status status = run_next(compound);
        ++done;
        if (status != Status::ok || compound.repeated != nullptr) return status;
    }
    return compound.in.finished() ? Status::ok : Status::badxdr;
}

// The operation's number and status, and behind them the results.
Status Nfs4Service::run_next(Compound &compound) {
    uint32_t op = 0;
    const bool sound = compound.in.get_u32(op);
    const bool known = sound && is_operation_of(compound.minor, op);
    Writer &out = compound.out;
    out.put_u32(known ? op : static_cast<uint32_t>(Op::illegal));
    const std::size_t status_at = out.size();
    out.put_u32(0);
    Status status = Status::badxdr;
    if (compound.uncached)
        status = Status::retry_uncached_rep;
    else if (known)
        status = execute(compound, op, find_row(op));
    else if (sound)
        status = Status::op_illegal;
    out.patch_u32(status_at, static_cast<uint32_t>(status));
    return status;
}

Status Nfs4Service::execute(Compound &compound, uint32_t op, const Row *row) {
    const ProcedureRow *known = find_operation(op);
    if (row == nullptr || known == nullptr) return Status::notsupp;
    if (const Status status = check_order(compound, *row); status != Status::ok) return status;
    begun_(known->name);
    CallFaults &befallen = compound.call.befallen;
    files_.faults().befall_operation(*known, compound.call.arrival.path, befallen);
    if (!befallen.nfs_status) return (this->*row->operation)(compound);
    for (int i = 0; i < known->failure_words; ++i)
        compound.out.put_u32(0);
    return static_cast<Status>(*befallen.nfs_status);
}

// RFC 8881 section 2.10.6: where SEQUENCE belongs, and what does without it.
Status Nfs4Service::check_order(const Compound &compound, const Row &row) const {
    const bool first = compound.index == 0;
    switch (row.needs) {
        case Needs::first:
            return first ? Status::ok : Status::sequence_pos;
        case Needs::nothing:
            return compound.session != nullptr || compound.count == 1 ? Status::ok : Status::not_only_op;
        case Needs::session:
            break;
    }
    return compound.session != nullptr ? Status::ok : Status::op_not_in_session;
}

void Nfs4Service::finish(Compound &compound, Status status, std::string_view tag, uint32_t done) {
    Call &call = compound.call;
    if (compound.repeated != nullptr) {
        call.results.put_fixed(compound.repeated->results);
        call.bulk = compound.repeated->bulk;
        return;
    }
    Writer all;
    all.put_u32(static_cast<uint32_t>(status));
    all.put_string(tag);
    all.put_u32(done);
    all.put_fixed(compound.out.bytes());
    call.results.put_fixed(all.bytes());
    if (compound.slot != nullptr && compound.keep) compound.slot->reply = KeptReply{all.take(), call.bulk};
}

// --- handles

Nfs4Service::Result<Nfs4Service::Target> Nfs4Service::place(Compound &, const Handle &handle) {
    if (handle.empty()) return Status::nofilehandle;
    if (auto path = root_.path_of(handle)) return Target{std::nullopt, std::move(*path)};
    auto object = files_.find(handle);
    if (!object.ok()) return from(object.status());
    return Target{std::move(*object), {}};
}

Nfs4Service::Result<Object> Nfs4Service::current_object(Compound &compound) {
    auto found = place(compound, compound.current);
    if (!found.ok()) return found.status;
    if (!found->object) return Status::rofs;  // the directories that lead to the exports never change
    return std::move(*found->object);
}

// A directory whose names are read or changed.
Nfs4Service::Result<Nfs4Service::Folder> Nfs4Service::folder(Compound &compound, const Handle &handle) {
    auto found = place(compound, handle);
    if (!found.ok()) return found.status;
    if (!found->object) return Status::rofs;
    if (found->object->is_link()) return Status::symlink;
    auto opened = files_.find_folder(handle);
    if (!opened.ok()) return from(opened.status());
    return std::move(*opened);
}

void Nfs4Service::enter(Compound &compound, const FileKey &key) {
    compound.current = files_.handle_of(compound.call, key);
    compound.state = {};
}

Described Nfs4Service::describe(const Call &call, const Object &object, const Bitmap &wanted) {
    Described described;
    described.status = files_.shown(call, object.key, object.status);
    described.handle = files_.handle_of(call, object.key);
    described.export_id = object.home->id;
    described.max_read = files_.settings().max_read;
    described.max_write = files_.settings().max_write;
    described.lease_seconds = kLeaseSeconds;
    if (!wants_space(wanted)) return described;
    if (const auto space = files_.space(call, object); space.ok()) described.space = *space;
    return described;
}

Described Nfs4Service::describe_path(std::string_view path) const {
    Described described;
    described.status = root_.status_of(path);
    described.handle = PseudoRoot::handle_of(path);
    described.max_read = files_.settings().max_read;
    described.max_write = files_.settings().max_write;
    described.lease_seconds = kLeaseSeconds;
    return described;
}

Nfs4Service::Result<Described> Nfs4Service::describe(Compound &compound, const Bitmap &wanted) {
    auto found = place(compound, compound.current);
    if (!found.ok()) return found.status;
    if (found->object) return describe(compound.call, *found->object, wanted);
    return describe_path(found->path);
}

Status Nfs4Service::check_component(std::string_view name) {
    if (name == "." || name == "..") return Status::badname;
    const NfsStatus status = check_name(name);
    if (status == NfsStatus::inval && !name.empty()) return Status::badname;
    return from(status);
}

// change_info4 of a directory whose status is the one before.
void Nfs4Service::put_change(Writer &out, const Folder &folder) {
    struct statx now {};
    const bool known = status_of(folder.descriptor.get(), now) == NfsStatus::ok;
    out.put_bool(false);  // others may have been there in between
    out.put_u64(Described::change_of(folder.object.status));
    out.put_u64(Described::change_of(known ? now : folder.object.status));
}

}  // namespace loopnfsd::nfs4
