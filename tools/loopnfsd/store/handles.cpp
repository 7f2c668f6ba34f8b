// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/handles.h"

#include <sys/sysmacros.h>

#include <algorithm>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"

namespace loopnfsd {

namespace {

constexpr uint32_t kMark = 0x4C4E4631;  // "LNF1": a handle of another server is told by it
constexpr std::size_t kDepthMaximum = 4096;
constexpr uint64_t kNanoseconds = 1'000'000'000;

uint64_t mix(uint64_t value) {
    value ^= value >> 33;
    value *= 0xFF51AFD7ED558CCD;
    return value ^ value >> 33;
}

}  // namespace

std::size_t FileKeyHash::operator()(const FileKey &key) const {
    return mix(mix(mix(key.inode) + key.generation) + key.device + key.export_id);
}

FileKey key_of(uint32_t export_id, const struct statx &status) {
    FileKey key{export_id, makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino, 0};
    if ((status.stx_mask & STATX_BTIME) != 0)
        key.generation = static_cast<uint64_t>(status.stx_btime.tv_sec) * kNanoseconds + status.stx_btime.tv_nsec;
    return key;
}

std::vector<std::byte> encode_handle(const FileKey &key, std::size_t size) {
    nfstdm::xdr::Writer out;
    out.put_u32(kMark);
    out.put_u32(key.export_id);
    out.put_u64(key.device);
    out.put_u64(key.inode);
    out.put_u64(key.generation);
    auto handle = out.take();
    handle.resize(size);
    return handle;
}

std::optional<FileKey> decode_handle(std::span<const std::byte> handle) {
    if (handle.size() < kHandleSize || handle.size() > nfstdm::nfs3::kHandleMaximum) return std::nullopt;
    nfstdm::xdr::Reader in(handle.first(kHandleSize));
    uint32_t mark = 0;
    FileKey key;
    in.get_u32(mark);
    in.get_u32(key.export_id);
    in.get_u64(key.device);
    in.get_u64(key.inode);
    in.get_u64(key.generation);
    const auto filling = handle.subspan(kHandleSize);
    const bool filled = std::ranges::all_of(filling, [](std::byte byte) { return byte == std::byte{0}; });
    if (!in.finished() || mark != kMark || !filled) return std::nullopt;
    return key;
}

void NameTable::remember_root(const FileKey &root) {
    seats_[root] = {root, {}};
}

void NameTable::remember(const FileKey &key, const FileKey &parent, std::string_view name) {
    Seat &seat = seats_[key];
    if (seat.parent == key) return;  // a root, seen again through ".." of a mount or the like
    seat.parent = parent;
    seat.name = name;
}

void NameTable::forget(const FileKey &key) {
    seats_.erase(key);
}

std::optional<std::vector<std::string>> NameTable::path_of(const FileKey &key) const {
    std::vector<std::string> names;
    FileKey here = key;
    // Directories moved into one another behind our back can leave a ring; the bound ends it.
    while (names.size() < kDepthMaximum) {
        const auto found = seats_.find(here);
        if (found == seats_.end()) return std::nullopt;
        if (found->second.parent == here) {
            std::ranges::reverse(names);
            return names;
        }
        names.push_back(found->second.name);
        here = found->second.parent;
    }
    return std::nullopt;
}

std::optional<FileKey> NameTable::parent_of(const FileKey &key) const {
    const auto found = seats_.find(key);
    if (found == seats_.end()) return std::nullopt;
    return found->second.parent;
}

}  // namespace loopnfsd
