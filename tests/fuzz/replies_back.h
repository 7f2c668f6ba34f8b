// SPDX-License-Identifier: Apache-2.0
// Writes replies as a server would (RFC 1813 section 3.3), from what the client made of one. What the client does not
// keep, such as a device number or a file's state before an operation, is written as zero or as absent.
#pragma once

#include "nfstdm/nfs3/fields.h"
#include "nfstdm/nfs3/mount.h"
#include "nfstdm/nfs3/replies.h"
#include "nfstdm/xdr/writer.h"

namespace fuzz {

using nfstdm::xdr::Writer;

inline void put(Writer &out, const nfstdm::Time &time) {
    out.put_u32(static_cast<uint32_t>(time.seconds));
    out.put_u32(time.nanoseconds);
}

inline void put(Writer &out, const nfstdm::Attributes &attributes) {
    out.put_u32(static_cast<uint32_t>(attributes.type));
    for (const uint32_t word : {attributes.mode, attributes.links, attributes.uid, attributes.gid})
        out.put_u32(word);
    for (const uint64_t number : {attributes.size, attributes.used, uint64_t{0}, attributes.fsid, attributes.fileid})
        out.put_u64(number);
    for (const auto &time : {attributes.access, attributes.modification, attributes.change})
        put(out, time);
}

inline void put(Writer &out, const nfstdm::DirectoryState &state) {
    out.put_u64(state.size);
    put(out, state.modification);
    put(out, state.change);
}

inline void put(Writer &out, const nfstdm::FileHandle &handle) {
    nfstdm::nfs3::put_handle(out, handle);
}

// post_op_attr and post_op_fh3.
template <class Field>
void put(Writer &out, const std::optional<Field> &field) {
    out.put_bool(field.has_value());
    if (field) put(out, *field);
}

// wcc_data.
inline void put(Writer &out, const nfstdm::DirectoryChange &change) {
    put(out, change.before);
    put(out, change.after);
}

inline void put_wcc(Writer &out, const std::optional<nfstdm::Attributes> &after = {}) {
    out.put_bool(false);
    put(out, after);
}

inline void put(Writer &out, const nfstdm::LookupReply &reply) {
    put(out, reply.handle);
    put(out, reply.attributes);
    put(out, reply.directory);
}

inline void put(Writer &out, const std::string &target) {  // READLINK
    out.put_bool(false);
    out.put_string(target);
}

inline void put(Writer &out, const nfstdm::WriteReply &reply) {
    put_wcc(out, reply.attributes);
    out.put_u32(reply.count);
    out.put_u32(static_cast<uint32_t>(reply.committed));
    out.put_u64(reply.verifier);
}

inline void put(Writer &out, const nfstdm::CommitReply &reply) {
    put_wcc(out, reply.attributes);
    out.put_u64(reply.verifier);
}

inline void put(Writer &out, const nfstdm::CreateReply &reply) {
    put(out, reply.handle);
    put(out, reply.attributes);
    put(out, reply.directory);
}

inline void put(Writer &out, const nfstdm::nfs3::NoReply &) {
    put_wcc(out);
}

inline void put_directory(Writer &out, const nfstdm::DirectoryReply &reply, bool plus) {
    put(out, reply.directory);
    out.put_u64(reply.verifier);
    for (const auto &entry : reply.entries) {
        out.put_bool(true);
        out.put_u64(entry.fileid);
        out.put_string(entry.name, entry.name.size());  // a listing tells of names that are too long to be asked for
        out.put_u64(entry.cookie);
        if (!plus) continue;
        put(out, entry.attributes);
        put(out, entry.handle);
    }
    out.put_bool(false);
    out.put_bool(reply.eof);
}

inline void put(Writer &out, const nfstdm::FsStatReply &reply) {
    put(out, reply.attributes);
    for (const uint64_t number : {reply.total_bytes, reply.free_bytes, reply.available_bytes, reply.total_files,
                                  reply.free_files, reply.available_files})
        out.put_u64(number);
    out.put_u32(reply.volatility_seconds);
}

inline void put(Writer &out, const nfstdm::FsInfoReply &reply) {
    const nfstdm::VolumeLimits &limits = reply.limits;
    put(out, reply.attributes);
    for (const uint32_t word : {limits.read_maximum, limits.read_preferred, limits.read_multiple, limits.write_maximum,
                                limits.write_preferred, limits.write_multiple, limits.readdir_preferred})
        out.put_u32(word);
    out.put_u64(limits.file_size_maximum);
    for (int word = 0; word < 3; ++word)  // time delta and properties
        out.put_u32(0);
}

inline void put(Writer &out, const nfstdm::mount3::MountReply &reply) {
    out.put_u32(0);
    put(out, reply.root);
    out.put_u32(static_cast<uint32_t>(reply.flavours.size()));
    for (const uint32_t flavour : reply.flavours)
        out.put_u32(flavour);
}

}  // namespace fuzz
