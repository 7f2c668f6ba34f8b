// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/arguments.h"

#include <array>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/words.h"

namespace nfstdm::nfs4 {

namespace {

constexpr uint32_t kTypeDirectory = 2;
constexpr uint32_t kOpenNoCreate = 0;
constexpr uint32_t kOpenCreate = 1;
constexpr uint32_t kUnchecked = 0;
constexpr uint32_t kShareDenyNone = 0;
constexpr uint32_t kDelegationNone = 0;

// seqid (not looked at since minor version 1), share, owner.
xdr::Writer &begin_open(Compound &compound, const OpenOwner &owner, uint32_t access) {
    xdr::Writer &writer = compound.add(Op::open);
    writer.put_u32(0);
    writer.put_u32(access | kShareAccessWantNoDelegation);
    writer.put_u32(kShareDenyNone);
    writer.put_u64(owner.client);
    writer.put_u32(xdr::kHyper);
    writer.put_u64(owner.number);
    return writer;
}

void put_channel(xdr::Writer &writer, const ChannelSizes &sizes) {
    writer.put_u32(0);  // no padding in front of data
    writer.put_u32(sizes.request_maximum);
    writer.put_u32(sizes.response_maximum);
    writer.put_u32(sizes.cached_maximum);
    writer.put_u32(sizes.operations);
    writer.put_u32(sizes.requests);
    writer.put_u32(0);  // no RDMA
}

void put_range(xdr::Writer &writer, const CopyArguments &arguments) {
    put_state_id(writer, arguments.source);
    put_state_id(writer, arguments.destination);
    writer.put_u64(arguments.source_offset);
    writer.put_u64(arguments.destination_offset);
    writer.put_u64(arguments.count);
}

}  // namespace

void put_plain(Compound &compound, Op op) {
    compound.add(op);
}

void put_putfh(Compound &compound, const FileHandle &object) {
    put_handle(compound.add(Op::putfh), object);
}

void put_lookup(Compound &compound, std::string_view name) {
    put_name(compound.add(Op::lookup), name);
}

void put_verify_directory(Compound &compound, bool is_directory) {
    xdr::Writer &writer = compound.add(is_directory ? Op::verify : Op::nverify);
    AttributeSet{Attribute::type}.put(writer);
    writer.put_u32(xdr::kWord);
    writer.put_u32(kTypeDirectory);
}

void put_remove(Compound &compound, std::string_view name) {
    put_name(compound.add(Op::remove), name);
}

void put_getattr(Compound &compound, const AttributeSet &wanted) {
    wanted.put(compound.add(Op::getattr));
}

void put_setattr(Compound &compound, const StateId &state, const SetAttributes &set) {
    xdr::Writer &writer = compound.add(Op::setattr);
    put_state_id(writer, state);
    put_set_attributes(writer, set);
}

void put_read(Compound &compound, const StateId &state, uint64_t offset, uint32_t count) {
    xdr::Writer &writer = compound.add(Op::read);
    put_state_id(writer, state);
    writer.put_u64(offset);
    writer.put_u32(count);
}

void put_write(Compound &compound, const StateId &state, uint64_t offset, uint32_t count, Stability stability) {
    xdr::Writer &writer = compound.add(Op::write);
    put_state_id(writer, state);
    writer.put_u64(offset);
    writer.put_u32(static_cast<uint32_t>(stability));
    writer.put_u32(count);
}

void put_write_with(Compound &compound, const StateId &state, uint64_t offset, std::span<const std::byte> data,
                    Stability stability) {
    xdr::Writer &writer = compound.add(Op::write);
    put_state_id(writer, state);
    writer.put_u64(offset);
    writer.put_u32(static_cast<uint32_t>(stability));
    writer.put_opaque(data);
}

void put_commit(Compound &compound) {
    xdr::Writer &writer = compound.add(Op::commit);
    writer.put_u64(0);  // from the start
    writer.put_u32(0);  // to the end
}

void put_mkdir(Compound &compound, std::string_view name, const SetAttributes &set) {
    xdr::Writer &writer = compound.add(Op::create);
    writer.put_u32(kTypeDirectory);
    put_name(writer, name);
    put_set_attributes(writer, set);
}

void put_readdir(Compound &compound, uint64_t cookie, uint64_t verifier, uint32_t count, const AttributeSet &wanted) {
    xdr::Writer &writer = compound.add(Op::readdir);
    writer.put_u64(cookie);
    writer.put_u64(verifier);
    writer.put_u32(count);
    writer.put_u32(count);
    wanted.put(writer);
}

void put_open_create(Compound &compound, const OpenOwner &owner, uint32_t access, std::string_view name,
                     const SetAttributes &set) {
    xdr::Writer &writer = begin_open(compound, owner, access);
    writer.put_u32(kOpenCreate);
    writer.put_u32(kUnchecked);
    put_set_attributes(writer, set);
    writer.put_u32(static_cast<uint32_t>(Claim::null));
    put_name(writer, name);
}

void put_open_handle(Compound &compound, const OpenOwner &owner, uint32_t access, Claim claim) {
    xdr::Writer &writer = begin_open(compound, owner, access);
    writer.put_u32(kOpenNoCreate);
    writer.put_u32(static_cast<uint32_t>(claim));
    if (claim == Claim::previous) writer.put_u32(kDelegationNone);
}

void put_close(Compound &compound, const StateId &state) {
    xdr::Writer &writer = compound.add(Op::close);
    writer.put_u32(0);  // seqid, not looked at
    put_state_id(writer, state);
}

void put_exchange_id(Compound &compound, const ClientOwner &owner) {
    xdr::Writer &writer = compound.add(Op::exchange_id);
    writer.put_u64(owner.verifier);
    writer.put_string(owner.owner, kOpaqueMaximum);
    writer.put_u32(kFlagUseNonPnfs);
    writer.put_u32(0);  // SP4_NONE
    writer.put_u32(0);  // nothing about the implementation
}

void put_create_session(Compound &compound, uint64_t client, uint32_t sequence, const ChannelSizes &fore) {
    xdr::Writer &writer = compound.add(Op::create_session);
    writer.put_u64(client);
    writer.put_u32(sequence);
    writer.put_u32(0);  // neither persistent nor with a back channel
    put_channel(writer, fore);
    // The back channel is not used, yet some servers want it described.
    constexpr uint32_t kBackBytes = 4096;
    put_channel(writer, {kBackBytes, kBackBytes, 0, 2, 1});
    writer.put_u32(0);  // callback program
    writer.put_u32(1);  // one way for callbacks to say who calls
    writer.put_u32(rpc::kAuthNone);
}

void put_destroy_session(Compound &compound, const SessionId &session) {
    compound.add(Op::destroy_session).put_fixed(session);
}

void put_destroy_clientid(Compound &compound, uint64_t client) {
    compound.add(Op::destroy_clientid).put_u64(client);
}

void put_bind_connection(Compound &compound, const SessionId &session) {
    constexpr uint32_t kForeChannel = 1;
    xdr::Writer &writer = compound.add(Op::bind_conn_to_session);
    writer.put_fixed(session);
    writer.put_u32(kForeChannel);
    writer.put_bool(false);  // no RDMA
}

void put_reclaim_complete(Compound &compound) {
    compound.add(Op::reclaim_complete).put_bool(false);  // of every file system
}

void put_secinfo_no_name(Compound &compound) {
    compound.add(Op::secinfo_no_name).put_u32(0);  // of the current file handle
}

void put_secinfo(Compound &compound, std::string_view name) {
    compound.add(Op::secinfo).put_string(name, kNameMaximum);
}

void put_clone(Compound &compound, const CopyArguments &arguments) {
    put_range(compound.add(Op::clone), arguments);
}

void put_copy(Compound &compound, const CopyArguments &arguments, bool synchronous) {
    xdr::Writer &writer = compound.add(Op::copy);
    put_range(writer, arguments);
    writer.put_bool(true);  // from the start to the end: a count then tells what is copied
    writer.put_bool(synchronous);
    writer.put_u32(0);  // no other server to copy from
}

void put_offload_status(Compound &compound, const StateId &copy) {
    put_state_id(compound.add(Op::offload_status), copy);
}

void put_seek(Compound &compound, const StateId &state, uint64_t offset, Content wanted) {
    xdr::Writer &writer = compound.add(Op::seek);
    put_state_id(writer, state);
    writer.put_u64(offset);
    writer.put_u32(static_cast<uint32_t>(wanted));
}

void put_sequence(Compound &compound, const SequenceArguments &arguments) {
    xdr::Writer &writer = compound.add(Op::sequence);
    writer.put_fixed(arguments.session);
    writer.put_u32(arguments.sequence);
    writer.put_u32(arguments.slot);
    writer.put_u32(arguments.highest_slot);
    writer.put_bool(arguments.cache);
}

}  // namespace nfstdm::nfs4
