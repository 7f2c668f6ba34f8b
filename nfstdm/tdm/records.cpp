// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/records.h"

#include <algorithm>

#include "nfstdm/volume/sizes.h"

namespace nfstdm {
namespace {

constexpr uint32_t kEntriesPerReaddir = 1024;
constexpr uint16_t kPermitted = TDM_PERMITTED_READ | TDM_PERMITTED_WRITE | TDM_PERMITTED_RESIZE | TDM_PERMITTED_CREATE;

}  // namespace

TdmAttributes to_record(const Attributes &attributes) {
    TdmAttributes record{};
    record.type = static_cast<uint32_t>(attributes.type);
    record.permissions = attributes.mode;
    record.links = attributes.links;
    record.uid = attributes.uid;
    record.gid = attributes.gid;
    record.size = attributes.size;
    record.used = attributes.used;
    record.file_system_id = attributes.fsid;
    record.file_id = attributes.fileid;
    record.access_seconds = attributes.access.seconds;
    record.access_nanoseconds = attributes.access.nanoseconds;
    record.modification_seconds = attributes.modification.seconds;
    record.modification_nanoseconds = attributes.modification.nanoseconds;
    record.change_seconds = attributes.change.seconds;
    record.change_nanoseconds = attributes.change.nanoseconds;
    return record;
}

TdmAttributes to_record(const Attributes &attributes, const ObjectName &name) {
    TdmAttributes record = to_record(attributes);
    record.server = name.server;
    record.handle_digest = name.handle_digest;
    return record;
}

TdmFsInfo to_record(const FsInfoReply &info) {
    TdmFsInfo record{};
    record.attributes = to_record(info.attributes.value_or(Attributes{}));
    record.read_maximum = info.limits.read_maximum;
    record.read_preferred = info.limits.read_preferred;
    record.read_multiple = info.limits.read_multiple;
    record.write_maximum = info.limits.write_maximum;
    record.write_preferred = info.limits.write_preferred;
    record.write_multiple = info.limits.write_multiple;
    record.readdir_preferred = info.limits.readdir_preferred;
    record.readdir_entries = kEntriesPerReaddir;
    return record;
}

TdmFsStat to_record(const FsStatReply &stat) {
    TdmFsStat record{};
    record.attributes = to_record(stat.attributes.value_or(Attributes{}));
    record.total_bytes = stat.total_bytes;
    record.free_bytes = stat.free_bytes;
    record.available_bytes = stat.available_bytes;
    record.total_files = stat.total_files;
    record.free_files = stat.free_files;
    record.available_files = stat.available_files;
    record.volatility_seconds = stat.volatility_seconds;
    return record;
}

TdmFileInfo to_record(const OpenedFile &file, uint32_t block_size) {
    TdmFileInfo record{};
    record.file = file.identifier;
    record.size = file.size;
    record.preferred_io_size = kTransferMaximum;
    record.preferred_io_alignment = block_size;
    record.permitted = kPermitted;
    record.mirror_sides = 1;
    return record;
}

void fill_entry(const DirectoryStream::Entry &entry, uint64_t position, TdmDirEntry &record) {
    record.file_id = entry.fileid;
    record.cookie = position + 1;
    record.type = static_cast<uint32_t>(entry.type);
    fill_text(entry.name, record.name, sizeof record.name);
}

void fill_text(std::string_view text, char *buffer, uint32_t size) {
    if (buffer == nullptr || size == 0) return;
    const std::size_t count = std::min<std::size_t>(text.size(), size - 1);
    std::copy_n(text.begin(), count, buffer);
    buffer[count] = '\0';
}

}  // namespace nfstdm
