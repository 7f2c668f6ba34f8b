// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/replies.h"

#include <algorithm>

#include "nfstdm/remote/security.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/rpc/message/message.h"
#include "nfstdm/xdr/words.h"

namespace nfstdm::nfs4 {

namespace {

// Bytes of an entry as servers send it, so that the list seldom grows while it is read.
constexpr std::size_t kTypicalEntry = 200;

bool get_session_id(xdr::Reader &reader, SessionId &session) {
    std::span<const std::byte> bytes;
    if (!reader.get_fixed(bytes, kSessionIdSize)) return false;
    std::copy(bytes.begin(), bytes.end(), session.begin());
    return true;
}

bool get_channel(xdr::Reader &reader, ChannelSizes &sizes) {
    constexpr uint32_t kRdmaMaximum = 1;
    uint32_t padding = 0;
    uint32_t rdma = 0;
    return reader.get_u32(padding) && reader.get_u32(sizes.request_maximum) && reader.get_u32(sizes.response_maximum) &&
           reader.get_u32(sizes.cached_maximum) && reader.get_u32(sizes.operations) && reader.get_u32(sizes.requests) &&
           reader.get_u32(rdma) && rdma <= kRdmaMaximum && reader.skip(rdma * xdr::kWord);
}

bool skip_opaque(xdr::Reader &reader) {
    std::string_view bytes;
    return reader.get_string(bytes, kOpaqueMaximum);
}

bool skip_implementation(xdr::Reader &reader) {
    uint32_t count = 0;
    if (!reader.get_u32(count) || count > 1) return false;
    return count == 0 || (skip_opaque(reader) && skip_opaque(reader) && reader.skip(xdr::kHyper + xdr::kWord));
}

// nfsace4: type, flags, mask, who.
bool skip_access_entry(xdr::Reader &reader) {
    return reader.skip(3 * xdr::kWord) && skip_opaque(reader);
}

// open_delegation4 (RFC 8881 section 18.16.2). None is asked for, and without a back channel none can be given.
bool skip_delegation(xdr::Reader &reader) {
    enum : uint32_t { none = 0, read = 1, write = 2, none_with_reason = 3 };
    enum : uint32_t { contention = 1, resource = 2 };
    enum : uint32_t { by_size = 1 };
    uint32_t kind = 0;
    uint32_t detail = 0;
    StateId state;
    if (!reader.get_u32(kind)) return false;
    switch (kind) {
        case none:
            return true;
        case read:
            return get_state_id(reader, state) && reader.skip(xdr::kWord) && skip_access_entry(reader);
        case write:
            // A limit of bytes, or of blocks and their size: two words each.
            return get_state_id(reader, state) && reader.skip(xdr::kWord) && reader.get_u32(detail) &&
                   detail >= by_size && reader.skip(xdr::kHyper) && skip_access_entry(reader);
        case none_with_reason:
            if (!reader.get_u32(detail)) return false;
            return detail != contention && detail != resource ? true : reader.skip(xdr::kWord);
        default:
            return false;
    }
}

bool get_entry(xdr::Reader &reader, DirectoryEntry &entry) {
    AttributeValues values;
    if (!reader.get_u64(entry.cookie) || !get_name(reader, entry.name) || !get_attributes(reader, values)) return false;
    entry.fileid = values.object.fileid;
    if (values.rdattr_error != 0) return true;
    entry.attributes = values.attributes(values.handle.value_or(FileHandle{}));
    if (entry.attributes) entry.fileid = entry.attributes->fileid;
    entry.handle = values.handle;
    return true;
}

// A mechanism, a quality of protection, a service; flavour stays as it is for what is not known here.
bool get_kerberos(xdr::Reader &reader, uint32_t &flavour) {
    // 1.2.840.113554.1.2.2, as bare contents or with tag and length in front.
    static constexpr std::string_view kMechanism = "\x2a\x86\x48\x86\xf7\x12\x01\x02\x02";
    std::string_view mechanism;
    uint32_t quality = 0;
    uint32_t service = 0;
    if (!reader.get_string(mechanism, kOpaqueMaximum) || !reader.get_u32(quality) || !reader.get_u32(service))
        return false;
    if (mechanism.ends_with(kMechanism) && service >= 1 && service <= 3) flavour = remote::krb5_flavour(service);
    return true;
}

}  // namespace

bool get_exchange_id(xdr::Reader &reader, ExchangeReply &reply) {
    uint32_t protection = 0;
    uint64_t minor = 0;
    std::string_view major;
    std::string_view scope;
    if (!reader.get_u64(reply.client) || !reader.get_u32(reply.sequence) || !reader.get_u32(reply.flags) ||
        !reader.get_u32(protection) || protection != 0 || !reader.get_u64(minor) ||
        !reader.get_string(major, kOpaqueMaximum) || !reader.get_string(scope, kOpaqueMaximum))
        return false;
    reply.server = std::to_string(minor) + "/" + std::string(major);
    reply.scope = scope;
    return skip_implementation(reader);
}

bool get_create_session(xdr::Reader &reader, SessionReply &reply) {
    uint32_t flags = 0;
    ChannelSizes back;
    return get_session_id(reader, reply.session) && reader.get_u32(reply.sequence) && reader.get_u32(flags) &&
           get_channel(reader, reply.fore) && get_channel(reader, back);
}

bool get_sequence(xdr::Reader &reader, SequenceReply &reply) {
    return get_session_id(reader, reply.session) && reader.get_u32(reply.sequence) && reader.get_u32(reply.slot) &&
           reader.get_u32(reply.highest_slot) && reader.get_u32(reply.target_slot) && reader.get_u32(reply.flags);
}

bool get_bind_connection(xdr::Reader &reader) {
    return reader.skip(kSessionIdSize + 2 * xdr::kWord);
}

bool get_open(xdr::Reader &reader, OpenReply &reply) {
    uint32_t flags = 0;
    AttributeSet set;
    return get_state_id(reader, reply.state) && get_change(reader) && reader.get_u32(flags) && set.get(reader) &&
           skip_delegation(reader);
}

bool get_close(xdr::Reader &reader) {
    StateId state;
    return get_state_id(reader, state);
}

bool get_readlink(xdr::Reader &reader, std::string &target) {
    std::string_view text;
    if (!reader.get_string(text, kTargetMaximum)) return false;
    target = text;
    return true;
}

bool get_created(xdr::Reader &reader) {
    AttributeSet set;
    return get_change(reader) && set.get(reader);
}

bool get_set(xdr::Reader &reader) {
    AttributeSet set;
    return set.get(reader);
}

bool get_write(xdr::Reader &reader, WriteReply &reply) {
    uint32_t committed = 0;
    if (!reader.get_u32(reply.count) || !reader.get_u32(committed) || !reader.get_u64(reply.verifier) ||
        committed > static_cast<uint32_t>(Stability::file_sync))
        return false;
    reply.committed = static_cast<Stability>(committed);
    return true;
}

bool get_commit(xdr::Reader &reader, CommitReply &reply) {
    return reader.get_u64(reply.verifier);
}

bool get_copy(xdr::Reader &reader, CopyAnswer &reply) {
    uint32_t states = 0;
    uint32_t committed = 0;
    bool consecutive = false;
    bool synchronous = false;
    if (!reader.get_u32(states) || states > 1) return false;
    if (states == 1 && !get_state_id(reader, reply.going_on.emplace())) return false;
    if (!reader.get_u64(reply.count) || !reader.get_u32(committed) || !reader.get_u64(reply.verifier) ||
        committed > static_cast<uint32_t>(Stability::file_sync))
        return false;
    reply.committed = static_cast<Stability>(committed);
    return reader.get_bool(consecutive) && reader.get_bool(synchronous);
}

bool get_offload_status(xdr::Reader &reader, OffloadReply &reply) {
    uint32_t outcomes = 0;
    uint32_t outcome = 0;
    if (!reader.get_u64(reply.count) || !reader.get_u32(outcomes) || outcomes > 1) return false;
    if (outcomes == 0) return true;
    if (!reader.get_u32(outcome)) return false;
    reply.outcome = static_cast<NfsStatus>(outcome);
    return true;
}

bool get_seek(xdr::Reader &reader, SeekReply &reply) {
    return reader.get_bool(reply.eof) && reader.get_u64(reply.offset);
}

bool get_readdir(xdr::Reader &reader, DirectoryReply &reply) {
    bool another = false;
    if (!reader.get_u64(reply.verifier)) return false;
    reply.entries.reserve(reader.left() / kTypicalEntry);
    while (reader.get_bool(another) && another)
        if (!get_entry(reader, reply.entries.emplace_back())) return false;
    return reader.get_bool(reply.eof);
}

bool get_read(xdr::Reader &reader, std::size_t landed, ReadReply &reply) {
    return reader.get_bool(reply.eof) && reader.get_u32(reply.count) && reply.count == landed;
}

bool get_read_into(xdr::Reader &reader, std::span<std::byte> place, ReadReply &reply) {
    std::span<const std::byte> data;
    if (!reader.get_bool(reply.eof) || !reader.get_opaque(data, place.size())) return false;
    std::copy(data.begin(), data.end(), place.begin());
    reply.count = static_cast<uint32_t>(data.size());
    return true;
}

bool get_flavours(xdr::Reader &reader, std::vector<uint32_t> &flavours) {
    constexpr uint32_t kFlavoursMaximum = 64;
    uint32_t count = 0;
    if (!reader.get_u32(count) || count > kFlavoursMaximum) return false;
    for (; count > 0; --count) {
        uint32_t flavour = 0;
        if (!reader.get_u32(flavour)) return false;
        if (flavour == rpc::kRpcsecGss && !get_kerberos(reader, flavour)) return false;
        if (flavour != rpc::kRpcsecGss) flavours.push_back(flavour);
    }
    return true;
}

void skip_results(xdr::Reader &reader, Op op) {
    SequenceReply sequence;
    OpenReply open;
    switch (op) {
        case Op::sequence:
            get_sequence(reader, sequence);
            break;
        case Op::open:
            get_open(reader, open);
            break;
        case Op::reclaim_complete:
        case Op::putfh:
            break;
        default:
            reader.skip(reader.left() + 1);
    }
}

std::size_t read_data_position(std::span<const std::byte> known) {
    // When all went well, so much stands in front of the data: the compound's head, SEQUENCE, PUTFH and READ.
    constexpr std::size_t kLeast =
        3 * xdr::kWord + (2 * xdr::kWord + kSessionIdSize + 5 * xdr::kWord) + 2 * xdr::kWord + 4 * xdr::kWord;
    if (known.size() < xdr::kWord) return xdr::kWord;
    xdr::Reader reader(known);
    uint32_t status = 0;
    if (!reader.get_u32(status) || status != 0) return rpc::kWholeRecord;
    if (known.size() < kLeast) return kLeast;
    std::string_view tag;
    uint32_t count = 0;
    reader.get_string(tag, kTagMaximum);
    reader.get_u32(count);
    for (; reader.ok() && count > 0; --count) {
        uint32_t op = 0;
        if (!reader.get_u32(op) || !reader.get_u32(status)) break;
        if (op != static_cast<uint32_t>(Op::read)) {
            skip_results(reader, static_cast<Op>(op));
            continue;
        }
        if (!reader.skip(2 * xdr::kWord)) break;
        // A READ so near the front lacks the operations it was asked behind: the answer is collected whole, and
        // refused.
        return reader.left() == 0 ? known.size() : rpc::kWholeRecord;
    }
    return known.size() + xdr::kWord;
}

}  // namespace nfstdm::nfs4
