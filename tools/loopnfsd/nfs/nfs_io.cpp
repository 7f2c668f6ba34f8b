// SPDX-License-Identifier: Apache-2.0
// READ, WRITE, COMMIT.
#include <algorithm>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/nfs/nfs.h"

namespace loopnfsd {

namespace {

constexpr uint32_t kFileSync = 2;  // stable_how

}  // namespace

bool NfsService::read(Call &call) {
    Bytes handle;
    uint64_t offset = 0;
    uint32_t asked = 0;
    nfstdm::xdr::Reader &in = call.arguments;
    if (!get_handle(in, handle) || !in.get_u64(offset) || !in.get_u32(asked) || !in.finished()) return false;
    FileKey key;
    const auto file = files_.open_file(call, handle, kWantRead, key);
    NfsStatus status = file.status();
    uint32_t count = 0;
    if (file.ok()) {
        count = files_.read_count(call, file->status, offset, asked);
        call.bulk.bytes = files_.buffer();
        status = files_.read_bytes(*file, key, offset, {call.bulk.bytes.get(), count});
    }
    put_status(call, status);
    put_post_op(call, file, key);
    if (status != NfsStatus::ok) {
        call.bulk = {};
        return true;
    }
    call.results.put_u32(count);
    call.results.put_bool(offset + count >= file->status.stx_size);
    call.results.put_u32(count);  // of the opaque data, which follows from where it was read to
    call.bulk.size = (count + 3) & ~std::size_t{3};
    std::fill_n(call.bulk.bytes.get() + count, call.bulk.size - count, std::byte{0});
    return true;
}

bool NfsService::get_write_arguments(nfstdm::xdr::Reader &in, WriteArguments &arguments) {
    SharedFiles::WriteArguments &write = arguments.write;
    uint32_t count = 0;
    if (!get_handle(in, arguments.handle) || !in.get_u64(write.offset) || !in.get_u32(count) ||
        !in.get_u32(write.stable) || write.stable > kFileSync || !in.get_opaque(write.data, in.left()) ||
        !in.finished() || count > write.data.size())
        return false;
    write.data = write.data.first(count);
    return true;
}

bool NfsService::write(Call &call) {
    WriteArguments arguments;
    if (!get_write_arguments(call.arguments, arguments)) return false;
    FileKey key;
    const auto file = files_.open_file(call, arguments.handle, kWantWrite, key);
    SharedFiles::WriteResult result{file.status(), 0};
    if (file.ok()) result = files_.write(call, *file, key, arguments.write);
    put_status(call, result.status);
    put_file_wcc(call, file, key);
    if (result.status != NfsStatus::ok) return true;
    call.results.put_u32(result.count);
    call.results.put_u32(arguments.write.stable);
    call.results.put_u64(files_.write_verifier());
    return true;
}

// Commits the whole file whatever the range, which RFC 1813 section 3.3.21 allows.
bool NfsService::commit(Call &call) {
    Bytes handle;
    uint64_t offset = 0;
    uint32_t count = 0;
    nfstdm::xdr::Reader &in = call.arguments;
    if (!get_handle(in, handle) || !in.get_u64(offset) || !in.get_u32(count) || !in.finished()) return false;
    FileKey key;
    const auto file = files_.open_file(call, handle, kWantWrite, key);
    NfsStatus status = file.status();
    if (status == NfsStatus::ok) status = files_.commit(*file, key);
    put_status(call, status);
    put_file_wcc(call, file, key);
    if (status == NfsStatus::ok) call.results.put_u64(files_.write_verifier());
    return true;
}

void NfsService::put_post_op(Call &call, const Outcome<OpenFile> &file, const FileKey &key) {
    if (!file.ok()) return put_post_op_attributes(call.results, nullptr);
    const struct statx status = files_.shown(call, key, file->status);
    put_post_op_attributes(call.results, &status);
}

void NfsService::put_file_wcc(Call &call, const Outcome<OpenFile> &file, const FileKey &key) {
    put_pre_op_attributes(call.results, file.ok() ? &file->status : nullptr);
    if (!file.ok()) return put_post_op_attributes(call.results, nullptr);
    OpenFile now{file->descriptor, {}};
    if (status_of(now.descriptor, now.status) != NfsStatus::ok) return put_post_op_attributes(call.results, nullptr);
    put_post_op(call, now, key);
}

}  // namespace loopnfsd
