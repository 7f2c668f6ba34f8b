// SPDX-License-Identifier: Apache-2.0
// The results of each operation behind its NFS4_OK (RFC 8881 section 18). Every get tells whether they were whole and
// kept every maximum.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "nfstdm/nfs4/constants.h"
#include "nfstdm/nfs4/fields.h"
#include "nfstdm/volume/volume.h"
#include "nfstdm/xdr/reader.h"

namespace nfstdm::nfs4 {

// EXCHANGE_ID.
struct ExchangeReply {
    uint64_t client = 0;
    uint32_t sequence = 0;  // of the next CREATE_SESSION
    uint32_t flags = 0;
    std::string server;  // its owner, minor and major identifier
    std::string scope;
};
bool get_exchange_id(xdr::Reader &reader, ExchangeReply &reply);

struct SessionReply {
    SessionId session{};
    uint32_t sequence = 0;
    ChannelSizes fore;
};
bool get_create_session(xdr::Reader &reader, SessionReply &reply);

struct SequenceReply {
    SessionId session{};
    uint32_t sequence = 0;
    uint32_t slot = 0;
    uint32_t highest_slot = 0;
    uint32_t target_slot = 0;  // the highest that the server wants to see used
    uint32_t flags = 0;
};
bool get_sequence(xdr::Reader &reader, SequenceReply &reply);
bool get_bind_connection(xdr::Reader &reader);

struct OpenReply {
    StateId state;
};
bool get_open(xdr::Reader &reader, OpenReply &reply);
bool get_close(xdr::Reader &reader);

bool get_readlink(xdr::Reader &reader, std::string &target);
bool get_created(xdr::Reader &reader);  // CREATE
bool get_set(xdr::Reader &reader);      // SETATTR, which tells about its work even when it failed
bool get_write(xdr::Reader &reader, WriteReply &reply);
bool get_commit(xdr::Reader &reader, CommitReply &reply);
// An entry whose attributes could not be had comes without them and without a handle.
bool get_readdir(xdr::Reader &reader, DirectoryReply &reply);
// READ whose data the receiver put elsewhere, landed bytes of them.
bool get_read(xdr::Reader &reader, std::size_t landed, ReadReply &reply);
// READ with its data, which fit into place.
bool get_read_into(xdr::Reader &reader, std::span<std::byte> place, ReadReply &reply);
// COPY: what was written, or the state under which it goes on.
struct CopyAnswer {
    std::optional<StateId> going_on;
    uint64_t count = 0;
    Stability committed = Stability::unstable;
    uint64_t verifier = 0;
};
bool get_copy(xdr::Reader &reader, CopyAnswer &reply);
struct OffloadReply {
    uint64_t count = 0;                // bytes so far
    std::optional<NfsStatus> outcome;  // once it is over
};
bool get_offload_status(xdr::Reader &reader, OffloadReply &reply);
struct SeekReply {
    bool eof = false;  // there is none up to the end of the file
    uint64_t offset = 0;
};
bool get_seek(xdr::Reader &reader, SeekReply &reply);
// The flavours of RPC security that SECINFO and SECINFO_NO_NAME offer, with RPCSEC_GSS by the flavour that stands for
// Kerberos and the service (RFC 2623 section 2.2.2); other mechanisms are left out.
bool get_flavours(xdr::Reader &reader, std::vector<uint32_t> &flavours);

// Moves over the results of an operation that succeeded; the reader fails when they are not all there, or when this
// operation's are not known here.
void skip_results(xdr::Reader &reader, Op op);

// Where the data of a READ at the end of a compound begin (see rpc::DataPosition). The compound is SEQUENCE, any of the
// operations without results or with an OPEN's in between, READ.
std::size_t read_data_position(std::span<const std::byte> results);

}  // namespace nfstdm::nfs4
