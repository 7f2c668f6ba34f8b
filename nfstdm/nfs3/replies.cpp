// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/replies.h"

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/nfs3/fields.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/rpc/message/message.h"
#include "nfstdm/xdr/words.h"

namespace nfstdm::nfs3 {

namespace {

// Bytes of an entry as servers send it, so that the list seldom grows while it is read.
constexpr std::size_t kTypicalEntry = 32;
constexpr std::size_t kTypicalEntryPlus = 160;

// Entries are a list in which each announces the next; plus tells the two kinds of entry apart. The bytes of the reply
// bound the number of entries.
bool get_entries(xdr::Reader &reader, bool plus, DirectoryReply &reply) {
    bool another = false;
    reply.entries.reserve(reader.left() / (plus ? kTypicalEntryPlus : kTypicalEntry));
    while (reader.get_bool(another) && another) {
        DirectoryEntry &entry = reply.entries.emplace_back();
        if (!reader.get_u64(entry.fileid) || !get_name(reader, entry.name) || !reader.get_u64(entry.cookie))
            return false;
        if (plus && (!get_post_attributes(reader, entry.attributes) || !get_post_handle(reader, entry.handle)))
            return false;
    }
    return reader.get_bool(reply.eof);
}

bool get_directory(xdr::Reader &reader, bool plus, DirectoryReply &reply) {
    return get_post_attributes(reader, reply.directory) && reader.get_u64(reply.verifier) &&
           get_entries(reader, plus, reply);
}

}  // namespace

bool get_getattr(xdr::Reader &reader, Attributes &reply) {
    return get_attributes(reader, reply);
}

bool get_lookup(xdr::Reader &reader, LookupReply &reply) {
    return get_handle(reader, reply.handle) && get_post_attributes(reader, reply.attributes) &&
           get_post_attributes(reader, reply.directory);
}

bool get_readlink(xdr::Reader &reader, std::string &reply) {
    std::optional<Attributes> attributes;
    std::string_view target;
    if (!get_post_attributes(reader, attributes) || !reader.get_string(target, kTargetMaximum)) return false;
    reply = target;
    return true;
}

bool get_write(xdr::Reader &reader, WriteReply &reply) {
    uint32_t committed = 0;
    if (!get_wcc(reader, reply.attributes) || !reader.get_u32(reply.count) || !reader.get_u32(committed) ||
        !reader.get_u64(reply.verifier) || committed > static_cast<uint32_t>(Stability::file_sync))
        return false;
    reply.committed = static_cast<Stability>(committed);
    return true;
}

bool get_commit(xdr::Reader &reader, CommitReply &reply) {
    return get_wcc(reader, reply.attributes) && reader.get_u64(reply.verifier);
}

bool get_made(xdr::Reader &reader, CreateReply &reply) {
    return get_post_handle(reader, reply.handle) && get_post_attributes(reader, reply.attributes) &&
           get_wcc(reader, reply.directory);
}

bool get_removed(xdr::Reader &reader, DirectoryChange &reply) {
    return get_wcc(reader, reply);
}

bool get_changed(xdr::Reader &reader, NoReply &) {
    std::optional<Attributes> after;
    return get_wcc(reader, after);
}

bool get_readdir(xdr::Reader &reader, DirectoryReply &reply) {
    return get_directory(reader, false, reply);
}

bool get_readdirplus(xdr::Reader &reader, DirectoryReply &reply) {
    return get_directory(reader, true, reply);
}

bool get_fsstat(xdr::Reader &reader, FsStatReply &reply) {
    return get_post_attributes(reader, reply.attributes) && reader.get_u64(reply.total_bytes) &&
           reader.get_u64(reply.free_bytes) && reader.get_u64(reply.available_bytes) &&
           reader.get_u64(reply.total_files) && reader.get_u64(reply.free_files) &&
           reader.get_u64(reply.available_files) && reader.get_u32(reply.volatility_seconds);
}

bool get_fsinfo(xdr::Reader &reader, FsInfoReply &reply) {
    VolumeLimits &limits = reply.limits;
    constexpr std::size_t kTimeDeltaAndProperties = 3 * xdr::kWord;
    return get_post_attributes(reader, reply.attributes) && reader.get_u32(limits.read_maximum) &&
           reader.get_u32(limits.read_preferred) && reader.get_u32(limits.read_multiple) &&
           reader.get_u32(limits.write_maximum) && reader.get_u32(limits.write_preferred) &&
           reader.get_u32(limits.write_multiple) && reader.get_u32(limits.readdir_preferred) &&
           reader.get_u64(limits.file_size_maximum) && reader.skip(kTimeDeltaAndProperties);
}

bool get_read(xdr::Reader &reader, std::size_t landed, ReadReply &reply) {
    uint32_t size = 0;
    return get_post_attributes(reader, reply.attributes) && reader.get_u32(reply.count) && reader.get_bool(reply.eof) &&
           reader.get_u32(size) && size == reply.count && size == landed;
}

std::size_t read_data_position(std::span<const std::byte> results) {
    constexpr std::size_t kStatusAndFollow = 2 * xdr::kWord;
    constexpr std::size_t kCountEofLength = 3 * xdr::kWord;
    if (results.size() < kStatusAndFollow) return kStatusAndFollow;
    xdr::Reader reader(results);
    uint32_t status = 0;
    bool follow = false;
    if (!reader.get_u32(status) || status != 0 || !reader.get_bool(follow)) return rpc::kWholeRecord;
    return kStatusAndFollow + (follow ? kAttributesSize : 0) + kCountEofLength;
}

}  // namespace nfstdm::nfs3
