// SPDX-License-Identifier: Apache-2.0
// COPY, OFFLOAD_STATUS, CLONE, SEEK (RFC 7862 section 15). A copy in the background makes its way whenever somebody
// asks how far it is, so that tests see each of its states.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tools/loopnfsd/base/unique_fd.h"
#include "tools/loopnfsd/nfs4/nfs4.h"

namespace loopnfsd::nfs4 {

namespace {

constexpr uint32_t kUnstable = 0;                         // stable_how4
constexpr uint64_t kBackgroundStep = uint64_t{32} << 20;  // bytes
constexpr uint32_t kHole = 1;                             // data_content4; 0 is data

}  // namespace

bool Nfs4Service::get_copy(Reader &in, CopyStates &states, RunningCopy &copy) {
    return get_state_id(in, states.source) && get_state_id(in, states.destination) && in.get_u64(copy.from) &&
           in.get_u64(copy.to) && in.get_u64(copy.count);
}

// The saved file is the source, the current one the destination; neither may change before both are checked.
Status Nfs4Service::begin_copy(Compound &compound, const CopyStates &states, RunningCopy &copy) {
    if (compound.saved.empty() || compound.current.empty()) return Status::nofilehandle;
    copy.source = compound.saved;
    copy.destination = compound.current;
    std::swap(compound.saved, compound.current);
    const Status readable = check_state(compound, states.source, kShareRead);
    std::swap(compound.saved, compound.current);
    if (readable != Status::ok) return readable;
    if (const Status writable = check_state(compound, states.destination, kShareWrite); writable != Status::ok)
        return writable;
    FileKey key;
    auto destination = open_file(compound, copy.destination, kWantWrite, key);
    if (!destination.ok()) return destination.status;
    auto source = open_file(compound, copy.source, kWantRead, key);
    if (!source.ok()) return source.status;
    const uint64_t size = source->status.stx_size;
    if (copy.from > size || copy.count > size - copy.from) return Status::inval;
    if (copy.count == 0) copy.count = size - copy.from;
    const uint64_t apart = copy.from > copy.to ? copy.from - copy.to : copy.to - copy.from;
    return copy.source == copy.destination && apart < copy.count ? Status::inval : Status::ok;
}

// At most so many bytes; short when there is no more room for them.
Status Nfs4Service::go_on_copying(Compound &compound, RunningCopy &copy, uint64_t most) {
    const auto bytes = files_.buffer();
    const uint32_t piece = std::min(files_.settings().max_read, files_.settings().max_write);
    for (const uint64_t end = copy.done + std::min(most, copy.count - copy.done); copy.done < end;) {
        const std::size_t size = std::min<uint64_t>(piece, end - copy.done);
        FileKey key;
        auto source = open_file(compound, copy.source, kWantRead, key);
        if (!source.ok()) return source.status;
        const NfsStatus got = files_.read_bytes(*source, key, copy.from + copy.done, {bytes.get(), size});
        if (got != NfsStatus::ok) return from(got);
        auto destination = open_file(compound, copy.destination, kWantWrite, key);
        if (!destination.ok()) return destination.status;
        const auto written =
            files_.write(compound.call, *destination, key, {copy.to + copy.done, kUnstable, {bytes.get(), size}});
        if (written.status != NfsStatus::ok) return from(written.status);
        copy.done += written.count;
        if (written.count < size) copy.count = copy.done;
    }
    return Status::ok;
}

void Nfs4Service::put_copied(Compound &compound, const RunningCopy &copy, const StateId *going_on) const {
    Writer &out = compound.out;
    out.put_u32(going_on != nullptr ? 1 : 0);
    if (going_on != nullptr) put_state_id(out, *going_on);
    out.put_u64(copy.done);
    out.put_u32(kUnstable);
    out.put_u64(files_.write_verifier());
    out.put_bool(true);                 // consecutively
    out.put_bool(going_on == nullptr);  // synchronously
}

Status Nfs4Service::copy(Compound &compound) {
    Reader &in = compound.in;
    CopyStates states;
    RunningCopy copy;
    bool consecutive = false;
    bool at_once = false;
    uint32_t other_servers = 0;
    if (!get_copy(in, states, copy) || !in.get_bool(consecutive) || !in.get_bool(at_once) || !in.get_u32(other_servers))
        return Status::badxdr;
    const CopyOffer &offer = settings_.copies;
    if (other_servers != 0 || (!offer.at_once && !offer.in_background)) return Status::notsupp;
    if (const Status status = begin_copy(compound, states, copy); status != Status::ok) return status;
    if (at_once && !offer.at_once) {
        compound.out.put_bool(true);   // what would do: consecutively,
        compound.out.put_bool(false);  // and not synchronously
        return Status::offload_no_reqs;
    }
    if (!at_once && offer.in_background) {
        const StateId id{1, clients_.boot(), ++last_copy_};
        put_copied(compound, copy, &id);
        running_copies_.emplace(id.number, std::move(copy));
        return Status::ok;
    }
    if (const Status status = go_on_copying(compound, copy, copy.count); status != Status::ok && copy.done == 0)
        return status;
    put_copied(compound, copy, nullptr);
    return Status::ok;
}

Status Nfs4Service::offload_status(Compound &compound) {
    StateId state;
    if (!get_state_id(compound.in, state)) return Status::badxdr;
    const auto running = running_copies_.find(state.number);
    if (state.boot != clients_.boot() || running == running_copies_.end()) return Status::bad_stateid;
    RunningCopy &copy = running->second;
    const Status status = go_on_copying(compound, copy, kBackgroundStep);
    const bool over = status != Status::ok || copy.done == copy.count;
    compound.out.put_u64(copy.done);
    compound.out.put_u32(over ? 1 : 0);
    if (!over) return Status::ok;
    compound.out.put_u32(static_cast<uint32_t>(status));
    running_copies_.erase(running);
    return Status::ok;
}

bool Nfs4Service::share_blocks(Compound &compound, const RunningCopy &copy) {
    FileKey key;
    auto source = open_file(compound, copy.source, kWantRead, key);
    if (!source.ok()) return false;
    const UniqueFd kept(dup(source->descriptor));  // the next file that is opened may close this one
    auto destination = open_file(compound, copy.destination, kWantWrite, key);
    return destination.ok() &&
           files_.share(compound.call, kept.get(), *destination, key, {copy.from, copy.to, copy.count});
}

// Whole or not at all (RFC 7862 section 15.13): nobody else is served meanwhile. Where the file system below cannot
// share blocks the bytes are copied, which a client cannot tell.
Status Nfs4Service::clone(Compound &compound) {
    CopyStates states;
    RunningCopy copy;
    if (!get_copy(compound.in, states, copy)) return Status::badxdr;
    if (!settings_.copies.clones) return Status::notsupp;
    if (const Status status = begin_copy(compound, states, copy); status != Status::ok) return status;
    if (share_blocks(compound, copy)) return Status::ok;
    const uint64_t wanted = copy.count;
    const Status status = go_on_copying(compound, copy, wanted);
    return status == Status::ok && copy.done < wanted ? Status::nospc : status;
}

// What is held is no part of the file yet, so it is brought there first. Who may not write has nothing held.
Status Nfs4Service::seek(Compound &compound) {
    StateId state;
    uint64_t offset = 0;
    uint32_t wanted = 0;
    Reader &in = compound.in;
    if (!get_state_id(in, state) || !in.get_u64(offset) || !in.get_u32(wanted)) return Status::badxdr;
    if (wanted > kHole) return Status::union_notsupp;
    if (const Status status = check_state(compound, state, kShareRead); status != Status::ok) return status;
    FileKey key;
    if (auto writable = open_file(compound, compound.current, kWantWrite, key); writable.ok())
        if (const NfsStatus stored = files_.commit(*writable, key); stored != NfsStatus::ok) return from(stored);
    auto file = open_file(compound, compound.current, kWantRead, key);
    if (!file.ok()) return file.status;
    if (offset >= file->status.stx_size) return Status::nxio;
    const off_t found = lseek(file->descriptor, static_cast<off_t>(offset), wanted == kHole ? SEEK_HOLE : SEEK_DATA);
    if (found < 0 && errno != ENXIO) return from(status_of_errno(errno));
    const uint64_t size = file->status.stx_size;
    const uint64_t place = found < 0 ? size : static_cast<uint64_t>(found);
    compound.out.put_bool(place >= size);
    compound.out.put_u64(place);
    return Status::ok;
}

}  // namespace loopnfsd::nfs4
