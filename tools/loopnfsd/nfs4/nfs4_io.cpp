// SPDX-License-Identifier: Apache-2.0
// READ, WRITE, COMMIT.
#include <algorithm>

#include "tools/loopnfsd/nfs4/nfs4.h"

namespace loopnfsd::nfs4 {

namespace {

constexpr uint32_t kFileSync = 2;  // stable_how4

}  // namespace

Nfs4Service::Result<OpenFile> Nfs4Service::open_file(Compound &compound, const Handle &handle, unsigned want,
                                                     FileKey &key) {
    auto found = place(compound, handle);
    if (!found.ok()) return found.status;
    if (!found->object || found->object->is_directory()) return Status::isdir;
    if (found->object->is_link()) return Status::symlink;
    if (!found->object->is_regular()) return Status::wrong_type;
    auto file = files_.open_file(compound.call, handle, want, key);
    if (!file.ok()) return from(file.status());
    return *file;
}

Status Nfs4Service::read(Compound &compound) {
    StateId state;
    uint64_t offset = 0;
    uint32_t asked = 0;
    Reader &in = compound.in;
    if (!get_state_id(in, state) || !in.get_u64(offset) || !in.get_u32(asked)) return Status::badxdr;
    if (const Status status = check_state(compound, state, kShareRead); status != Status::ok) return status;
    FileKey key;
    auto file = open_file(compound, compound.current, kWantRead, key);
    if (!file.ok()) return file.status;
    const uint32_t count = files_.read_count(compound.call, file->status, offset, asked);
    const auto bytes = files_.buffer();
    const NfsStatus got = files_.read_bytes(*file, key, offset, {bytes.get(), count});
    if (got != NfsStatus::ok) return from(got);
    compound.out.put_bool(offset + count >= file->status.stx_size);
    if (!compound.is_last()) {
        compound.out.put_opaque({bytes.get(), count});
        return Status::ok;
    }
    compound.out.put_u32(count);  // of the opaque data, which follows from where it was read to
    const std::size_t padded = (count + 3) & ~std::size_t{3};
    std::fill_n(bytes.get() + count, padded - count, std::byte{0});
    compound.call.bulk = {bytes, padded};
    return Status::ok;
}

Status Nfs4Service::write(Compound &compound) {
    StateId state;
    SharedFiles::WriteArguments arguments;
    Reader &in = compound.in;
    if (!get_state_id(in, state) || !in.get_u64(arguments.offset) || !in.get_u32(arguments.stable) ||
        arguments.stable > kFileSync || !in.get_opaque(arguments.data, in.left()))
        return Status::badxdr;
    if (const Status status = check_state(compound, state, kShareWrite); status != Status::ok) return status;
    FileKey key;
    auto file = open_file(compound, compound.current, kWantWrite, key);
    if (!file.ok()) return file.status;
    const auto written = files_.write(compound.call, *file, key, arguments);
    if (written.status != NfsStatus::ok) return from(written.status);
    compound.out.put_u32(written.count);
    compound.out.put_u32(arguments.stable);
    compound.out.put_u64(files_.write_verifier());
    return Status::ok;
}

Status Nfs4Service::commit(Compound &compound) {
    uint64_t offset = 0;
    uint32_t count = 0;
    if (!compound.in.get_u64(offset) || !compound.in.get_u32(count)) return Status::badxdr;
    FileKey key;
    auto file = open_file(compound, compound.current, kWantWrite, key);
    if (!file.ok()) return file.status;
    const NfsStatus status = files_.commit(*file, key);
    if (status == NfsStatus::ok) compound.out.put_u64(files_.write_verifier());
    return from(status);
}

}  // namespace loopnfsd::nfs4
