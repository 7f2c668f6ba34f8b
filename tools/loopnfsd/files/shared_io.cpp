// SPDX-License-Identifier: Apache-2.0
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "tools/loopnfsd/files/shared_files.h"

namespace loopnfsd {

namespace {

constexpr uint32_t kUnstable = 0;                     // stable_how
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

Outcome<OpenFile> SharedFiles::open_file(const Call &call, Bytes handle, unsigned want, FileKey &key) {
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

NfsStatus SharedFiles::sync(int descriptor) const {
    return !settings_.sync || fdatasync(descriptor) == 0 ? NfsStatus::ok : status_of_errno(errno);
}

uint32_t SharedFiles::read_count(const Call &call, const struct statx &status, uint64_t offset, uint32_t asked) {
    uint64_t count = std::min(asked, settings_.max_read);
    const auto limit = faults_.number(FaultKind::short_read, call.arrival.path);
    if (limit && *limit < count) {
        faults_.note(FaultKind::short_read);
        count = *limit;
    }
    return static_cast<uint32_t>(offset >= status.stx_size ? 0 : std::min<uint64_t>(count, status.stx_size - offset));
}

// What the file does not have although its size says so is zeros: data that is held lies beyond a gap.
NfsStatus SharedFiles::read_bytes(const OpenFile &file, const FileKey &key, uint64_t offset,
                                  std::span<std::byte> bytes) {
    const auto got = read_fully(file.descriptor, offset, bytes);
    if (!got.ok()) return got.status();
    std::ranges::fill(bytes.subspan(*got), std::byte{0});
    held_.overlay(key, offset, bytes);
    return NfsStatus::ok;
}

// The part of the data that is to be taken: all of it, unless a limit says otherwise.
SharedFiles::Bytes SharedFiles::what_fits(const Call &call, const OpenFile &file, const FileKey &key,
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

SharedFiles::WriteResult SharedFiles::write(const Call &call, const OpenFile &file, const FileKey &key,
                                            const WriteArguments &arguments) {
    const uint64_t offset = arguments.offset;
    constexpr uint64_t kEnd = std::numeric_limits<off_t>::max();
    if (offset > kEnd || arguments.data.size() > kEnd - offset) return {NfsStatus::fbig, 0};
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

NfsStatus SharedFiles::store_held(const OpenFile &file, const FileKey &key) {
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

// The whole file, whatever the range that was asked for.
NfsStatus SharedFiles::commit(const OpenFile &file, const FileKey &key) {
    const NfsStatus status = store_held(file, key);
    return status == NfsStatus::ok ? sync(file.descriptor) : status;
}

// What is held is no part of a file yet, and a limit of space is one of bytes that are written.
bool SharedFiles::share(const Call &call, int source, const OpenFile &file, const FileKey &key,
                        const SharedRange &range) {
    if (held_.bytes() != 0 || faults_.number(FaultKind::capacity, call.arrival.path)) return false;
    const file_clone_range wanted{source, range.from, range.count, range.to};
    if (ioctl(file.descriptor, FICLONERANGE, &wanted) != 0) return false;
    capacity_.charge(key, file.status, range.to, range.count);
    return true;
}

}  // namespace loopnfsd
