// SPDX-License-Identifier: Apache-2.0
// READ, WRITE, COMMIT.
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/nfs/nfs.h"
#include "tools/loopnfsd/nfs/permissions.h"

namespace loopnfsd {

namespace {

constexpr uint32_t kUnstable = 0;  // stable_how
constexpr uint32_t kFileSync = 2;
constexpr uint64_t kHeldMaximum = uint64_t{1} << 30;  // bytes; beyond them unstable data is stored early

// Reads until the bytes are full or the file ends.
Outcome<std::size_t> read_fully(int descriptor, uint64_t offset, std::span<std::byte> bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got =
            pread(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return status_of_errno(errno);
        if (got == 0) break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

// Gives how many bytes went in before the first failure; the failure itself when none did.
Outcome<std::size_t> write_fully(int descriptor, uint64_t offset, std::span<const std::byte> bytes) {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t put =
            pwrite(descriptor, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (put < 0 && errno == EINTR) continue;
        if (put < 0 && done == 0) return status_of_errno(errno);
        if (put < 0) break;
        done += static_cast<std::size_t>(put);
    }
    return done;
}

}  // namespace

Outcome<OpenFile> NfsService::open_file(Call &call, Bytes handle, unsigned want, FileKey &key) {
    const auto decoded = decode_handle(handle);
    if (!decoded) return NfsStatus::badhandle;
    key = *decoded;
    const Export *home = exports_.by_id(key.export_id);
    if (home == nullptr) return NfsStatus::stale;
    auto file = files_.get(tree_, key, (want & kWantWrite) != 0);
    if (!file.ok()) return file;
    const NfsStatus status = allow(call, *home, file->status, want);
    if (status != NfsStatus::ok) return status;
    held_.adjust(key, file->status);
    return file;
}

NfsStatus NfsService::sync(int descriptor) const {
    return !settings_.sync || fdatasync(descriptor) == 0 ? NfsStatus::ok : status_of_errno(errno);
}

uint32_t NfsService::read_count(const Call &call, const struct statx &status, uint64_t offset, uint32_t asked) {
    uint64_t count = std::min(asked, settings_.max_read);
    const auto limit = faults_.number(FaultKind::short_read, call.arrival.path);
    if (limit && *limit < count) {
        faults_.note(FaultKind::short_read);
        count = *limit;
    }
    return static_cast<uint32_t>(offset >= status.stx_size ? 0 : std::min<uint64_t>(count, status.stx_size - offset));
}

// What the file does not have although its size says so is zeros: data that is held lies beyond a gap.
NfsStatus NfsService::read_bytes(const OpenFile &file, const FileKey &key, uint64_t offset,
                                 std::span<std::byte> bytes) {
    const auto got = read_fully(file.descriptor, offset, bytes);
    if (!got.ok()) return got.status();
    std::ranges::fill(bytes.subspan(*got), std::byte{0});
    held_.overlay(key, offset, bytes);
    return NfsStatus::ok;
}

bool NfsService::read(Call &call) {
    Bytes handle;
    uint64_t offset = 0;
    uint32_t asked = 0;
    nfstdm::xdr::Reader &in = call.arguments;
    if (!get_handle(in, handle) || !in.get_u64(offset) || !in.get_u32(asked) || !in.finished()) return false;
    FileKey key;
    const auto file = open_file(call, handle, kWantRead, key);
    NfsStatus status = file.status();
    uint32_t count = 0;
    if (file.ok()) {
        count = read_count(call, file->status, offset, asked);
        call.bulk.bytes = buffers_.take();
        status = read_bytes(*file, key, offset, {call.bulk.bytes.get(), count});
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

// The part of the data that is to be taken: all of it, unless a limit says otherwise.
NfsService::Bytes NfsService::what_fits(Call &call, const OpenFile &file, const FileKey &key,
                                        const WriteArguments &arguments) {
    uint64_t size = std::min<uint64_t>(arguments.data.size(), settings_.max_write);
    const auto limit = faults_.number(FaultKind::short_write, call.arrival.path);
    if (limit && *limit < size) {
        faults_.note(FaultKind::short_write);
        size = *limit;
    }
    const auto capacity = faults_.number(FaultKind::capacity, call.arrival.path);
    if (!capacity) return arguments.data.first(size);
    const uint64_t room = *capacity - std::min(*capacity, capacity_.used());
    const uint64_t cost = capacity_.cost(key, file.status, arguments.offset, size);
    if (cost > room) {
        faults_.note(FaultKind::capacity);
        size -= std::min(size, cost - room);
    }
    return arguments.data.first(size);
}

NfsService::WriteResult NfsService::write_bytes(Call &call, const OpenFile &file, const FileKey &key,
                                                const WriteArguments &arguments) {
    const uint64_t offset = arguments.offset;
    const Bytes data = what_fits(call, file, key, arguments);
    if (data.empty() && !arguments.data.empty()) return {NfsStatus::nospc, 0};
    const bool hold = settings_.hold_unstable && arguments.stable == kUnstable && held_.bytes() < kHeldMaximum;
    std::size_t count = data.size();
    if (hold) {
        held_.write(key, offset, data);
    } else {
        const auto written = write_fully(file.descriptor, offset, data);
        if (!written.ok()) return {written.status(), 0};
        count = *written;
        held_.drop(key, offset, offset + count);
    }
    capacity_.charge(key, file.status, offset, count);
    const NfsStatus synced = arguments.stable == kUnstable ? NfsStatus::ok : sync(file.descriptor);
    return {synced, static_cast<uint32_t>(count)};
}

bool NfsService::get_write_arguments(nfstdm::xdr::Reader &in, WriteArguments &arguments) {
    uint32_t count = 0;
    if (!get_handle(in, arguments.handle) || !in.get_u64(arguments.offset) || !in.get_u32(count) ||
        !in.get_u32(arguments.stable) || arguments.stable > kFileSync || !in.get_opaque(arguments.data, in.left()) ||
        !in.finished() || count > arguments.data.size())
        return false;
    arguments.data = arguments.data.first(count);
    return true;
}

bool NfsService::write(Call &call) {
    WriteArguments arguments;
    if (!get_write_arguments(call.arguments, arguments)) return false;
    FileKey key;
    const auto file = open_file(call, arguments.handle, kWantWrite, key);
    WriteResult result{file.status(), 0};
    constexpr uint64_t kEnd = std::numeric_limits<off_t>::max();
    if (file.ok() && (arguments.offset > kEnd || arguments.data.size() > kEnd - arguments.offset))
        result.status = NfsStatus::fbig;
    if (result.status == NfsStatus::ok) result = write_bytes(call, *file, key, arguments);
    put_status(call, result.status);
    put_file_wcc(call, file, key);
    if (result.status != NfsStatus::ok) return true;
    call.results.put_u32(result.count);
    call.results.put_u32(arguments.stable);
    call.results.put_u64(write_verifier_);
    return true;
}

NfsStatus NfsService::commit_held(const OpenFile &file, const FileKey &key) {
    NfsStatus status = NfsStatus::ok;
    held_.drain(key, [&](uint64_t offset, Bytes data) {
        const auto written = write_fully(file.descriptor, offset, data);
        if (!written.ok())
            status = written.status();
        else if (*written < data.size())
            status = NfsStatus::nospc;
        return status == NfsStatus::ok;
    });
    return status;
}

// Commits the whole file whatever the range, which RFC 1813 section 3.3.21 allows.
bool NfsService::commit(Call &call) {
    Bytes handle;
    uint64_t offset = 0;
    uint32_t count = 0;
    nfstdm::xdr::Reader &in = call.arguments;
    if (!get_handle(in, handle) || !in.get_u64(offset) || !in.get_u32(count) || !in.finished()) return false;
    FileKey key;
    const auto file = open_file(call, handle, kWantWrite, key);
    NfsStatus status = file.status();
    if (status == NfsStatus::ok) status = commit_held(*file, key);
    if (status == NfsStatus::ok) status = sync(file->descriptor);
    put_status(call, status);
    put_file_wcc(call, file, key);
    if (status == NfsStatus::ok) call.results.put_u64(write_verifier_);
    return true;
}

void NfsService::put_post_op(Call &call, const Outcome<OpenFile> &file, const FileKey &key) {
    if (!file.ok()) return put_post_op_attributes(call.results, nullptr);
    const struct statx status = shown(call, key, file->status);
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
