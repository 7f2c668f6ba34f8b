// SPDX-License-Identifier: Apache-2.0
// The arguments of each operation, appended to a compound (RFC 8881 section 18). A name or handle beyond its maximum
// leaves the compound failed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "nfstdm/nfs4/compound.h"
#include "nfstdm/nfs4/fields.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs4 {

// GETFH, PUTROOTFH, SAVEFH and READLINK: they have no arguments.
void put_plain(Compound &compound, Op op);
void put_putfh(Compound &compound, const FileHandle &object);
void put_lookup(Compound &compound, std::string_view name);
// Goes on only when the current object is a directory (VERIFY), or only when it is none (NVERIFY).
void put_verify_directory(Compound &compound, bool is_directory);
void put_remove(Compound &compound, std::string_view name);
void put_getattr(Compound &compound, const AttributeSet &wanted);
void put_setattr(Compound &compound, const StateId &state, const SetAttributes &set);
void put_read(Compound &compound, const StateId &state, uint64_t offset, uint32_t count);
// Ends with the length of the data, which follow on the wire from where they are.
void put_write(Compound &compound, const StateId &state, uint64_t offset, uint32_t count, Stability stability);
// With the data, so that more operations can follow.
void put_write_with(Compound &compound, const StateId &state, uint64_t offset, std::span<const std::byte> data,
                    Stability stability);
void put_commit(Compound &compound);  // of the whole file
void put_mkdir(Compound &compound, std::string_view name, const SetAttributes &set);
// count: bytes of names and of all that comes with them.
void put_readdir(Compound &compound, uint64_t cookie, uint64_t verifier, uint32_t count, const AttributeSet &wanted);

// Who opens: one owner for each open, so that none of them is closed with another.
struct OpenOwner {
    uint64_t client = 0;
    uint64_t number = 0;
};
// By name in the current directory: makes the file or, when it exists, sets the size that is given (UNCHECKED4).
void put_open_create(Compound &compound, const OpenOwner &owner, uint32_t access, std::string_view name,
                     const SetAttributes &set);
// The current file handle, anew (CLAIM_FH) or as before the server restarted (CLAIM_PREVIOUS).
void put_open_handle(Compound &compound, const OpenOwner &owner, uint32_t access, Claim claim);
void put_close(Compound &compound, const StateId &state);

// Who the client is: the same text and verifier as long as it keeps its state.
struct ClientOwner {
    uint64_t verifier = 0;
    std::string_view owner;
};
void put_exchange_id(Compound &compound, const ClientOwner &owner);

void put_create_session(Compound &compound, uint64_t client, uint32_t sequence, const ChannelSizes &fore);
void put_destroy_session(Compound &compound, const SessionId &session);
void put_destroy_clientid(Compound &compound, uint64_t client);
void put_bind_connection(Compound &compound, const SessionId &session);
void put_reclaim_complete(Compound &compound);
void put_secinfo_no_name(Compound &compound);
void put_secinfo(Compound &compound, std::string_view name);

// From the saved file to the current one (RFC 7862 section 15).
struct CopyArguments {
    StateId source;
    StateId destination;
    uint64_t source_offset = 0;
    uint64_t destination_offset = 0;
    uint64_t count = 0;  // bytes
};
void put_clone(Compound &compound, const CopyArguments &arguments);
// synchronous: the answer is to come when the copy is made.
void put_copy(Compound &compound, const CopyArguments &arguments, bool synchronous);
void put_offload_status(Compound &compound, const StateId &copy);
// Where the next data, or the next hole, begin.
enum class Content : uint32_t { data = 0, hole = 1 };
void put_seek(Compound &compound, const StateId &state, uint64_t offset, Content wanted);

struct SequenceArguments {
    SessionId session{};
    uint32_t sequence = 0;
    uint32_t slot = 0;
    uint32_t highest_slot = 0;
    bool cache = false;
};
void put_sequence(Compound &compound, const SequenceArguments &arguments);

}  // namespace nfstdm::nfs4
