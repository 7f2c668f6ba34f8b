// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/fields.h"

#include <algorithm>
#include <span>

#include "nfstdm/nfs3/constants.h"

namespace nfstdm::nfs3 {

namespace {

constexpr uint32_t kModeBits = 07777;

bool get_time(xdr::Reader &reader, Time &time) {
    uint32_t seconds = 0;
    const bool got = reader.get_u32(seconds) && reader.get_u32(time.nanoseconds);
    time.seconds = seconds;
    return got;
}

// wcc_attr
bool get_state(xdr::Reader &reader, DirectoryState &state) {
    return reader.get_u64(state.size) && get_time(reader, state.modification) && get_time(reader, state.change);
}

bool is_file_type(uint32_t type) {
    return type >= static_cast<uint32_t>(FileType::regular) && type <= static_cast<uint32_t>(FileType::fifo);
}

}  // namespace

bool get_handle(xdr::Reader &reader, FileHandle &handle) {
    std::span<const std::byte> bytes;
    if (!reader.get_opaque(bytes, kHandleMaximum) || bytes.empty()) return false;
    handle.size = static_cast<uint8_t>(bytes.size());
    std::transform(bytes.begin(), bytes.end(), handle.bytes.begin(), std::to_integer<uint8_t>);
    return true;
}

bool get_attributes(xdr::Reader &reader, Attributes &attributes) {
    uint32_t type = 0;
    if (!reader.get_u32(type) || !is_file_type(type)) return false;
    attributes.type = static_cast<FileType>(type);
    constexpr std::size_t kDeviceSize = 8;
    const bool got = reader.get_u32(attributes.mode) && reader.get_u32(attributes.links) &&
                     reader.get_u32(attributes.uid) && reader.get_u32(attributes.gid) &&
                     reader.get_u64(attributes.size) && reader.get_u64(attributes.used) && reader.skip(kDeviceSize) &&
                     reader.get_u64(attributes.fsid) && reader.get_u64(attributes.fileid) &&
                     get_time(reader, attributes.access) && get_time(reader, attributes.modification) &&
                     get_time(reader, attributes.change);
    attributes.mode &= kModeBits;
    return got;
}

bool get_post_attributes(xdr::Reader &reader, std::optional<Attributes> &attributes) {
    bool follow = false;
    attributes.reset();
    if (!reader.get_bool(follow)) return false;
    return !follow || get_attributes(reader, attributes.emplace());
}

bool get_post_handle(xdr::Reader &reader, std::optional<FileHandle> &handle) {
    bool follow = false;
    handle.reset();
    if (!reader.get_bool(follow)) return false;
    return !follow || get_handle(reader, handle.emplace());
}

bool get_wcc(xdr::Reader &reader, DirectoryChange &change) {
    bool follow = false;
    change.before.reset();
    if (!reader.get_bool(follow) || (follow && !get_state(reader, change.before.emplace()))) return false;
    return get_post_attributes(reader, change.after);
}

bool get_wcc(xdr::Reader &reader, std::optional<Attributes> &after) {
    DirectoryChange change;
    const bool got = get_wcc(reader, change);
    after = change.after;
    return got;
}

bool get_name(xdr::Reader &reader, std::string &name) {
    std::string_view text;
    if (!reader.get_string(text, reader.left())) return false;
    name = text;
    return true;
}

void put_handle(xdr::Writer &writer, const FileHandle &handle) {
    writer.put_string(handle.view(), kHandleMaximum);
}

void put_name(xdr::Writer &writer, std::string_view name) {
    writer.put_string(name, kFileNameMaximum);
}

void put_set_attributes(xdr::Writer &writer, const SetAttributes &set) {
    writer.put_bool(set.mode.has_value());
    if (set.mode) writer.put_u32(*set.mode & kModeBits);
    writer.put_bool(false);  // uid
    writer.put_bool(false);  // gid
    writer.put_bool(set.size.has_value());
    if (set.size) writer.put_u64(*set.size);
    writer.put_u32(static_cast<uint32_t>(TimeHow::dont_change));  // access
    writer.put_u32(static_cast<uint32_t>(TimeHow::dont_change));  // modification
}

}  // namespace nfstdm::nfs3
