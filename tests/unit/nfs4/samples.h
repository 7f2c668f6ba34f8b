// SPDX-License-Identifier: Apache-2.0
// Results as a server writes them, behind each operation's number and status.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "nfstdm/nfs4/constants.h"
#include "nfstdm/nfs4/fields.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::nfs4::samples {

inline void put_change(xdr::Writer &writer) {
    writer.put_bool(true);
    writer.put_u64(1);
    writer.put_u64(2);
}

inline StateId state_id(uint8_t first) {
    StateId state;
    state.sequence = 1;
    state.other[0] = std::byte{first};
    return state;
}

inline void put_time(xdr::Writer &writer, uint64_t seconds) {
    writer.put_u64(seconds);
    writer.put_u32(5);
}

// The attributes that object_attributes() asks for, and the further ones that are wanted, in their order.
inline void put_attributes(xdr::Writer &writer, const AttributeSet &wanted, uint32_t type = 1, uint64_t size = 7,
                           std::string_view owner = "1000") {
    xdr::Writer values;
    const auto put = [&](Attribute attribute, auto &&value) {
        if (wanted.has(attribute)) value();
    };
    put(Attribute::type, [&] { values.put_u32(type); });
    put(Attribute::size, [&] { values.put_u64(size); });
    put(Attribute::fsid, [&] { values.put_u64(3), values.put_u64(4); });
    put(Attribute::lease_time, [&] { values.put_u32(90); });
    put(Attribute::rdattr_error, [&] { values.put_u32(0); });
    put(Attribute::filehandle, [&] { values.put_string("entry"); });
    put(Attribute::fileid, [&] { values.put_u64(42); });
    put(Attribute::files_avail, [&] { values.put_u64(11); });
    put(Attribute::files_free, [&] { values.put_u64(12); });
    put(Attribute::files_total, [&] { values.put_u64(13); });
    put(Attribute::fs_locations, [&] {
        values.put_u32(0);
        values.put_u32(1);
        values.put_u32(2);
        values.put_string("nas7");
        values.put_string("nas8");
        values.put_u32(2);
        values.put_string("vol");
        values.put_string("data");
    });
    put(Attribute::maxfilesize, [&] { values.put_u64(uint64_t{1} << 62); });
    put(Attribute::maxread, [&] { values.put_u64(uint64_t{4} << 20); });
    put(Attribute::maxwrite, [&] { values.put_u64(65536); });
    put(Attribute::mode, [&] { values.put_u32(0100644); });
    put(Attribute::numlinks, [&] { values.put_u32(1); });
    put(Attribute::owner, [&] { values.put_string(owner); });
    put(Attribute::owner_group, [&] { values.put_string("100"); });
    put(Attribute::space_avail, [&] { values.put_u64(21); });
    put(Attribute::space_free, [&] { values.put_u64(22); });
    put(Attribute::space_total, [&] { values.put_u64(23); });
    put(Attribute::space_used, [&] { values.put_u64(4096); });
    put(Attribute::time_access, [&] { put_time(values, 100); });
    put(Attribute::time_metadata, [&] { put_time(values, 300); });
    put(Attribute::time_modify, [&] { put_time(values, 200); });
    wanted.put(writer);
    writer.put_opaque(values.bytes());
}

inline void put_open(xdr::Writer &writer, const StateId &state) {
    put_state_id(writer, state);
    put_change(writer);
    writer.put_u32(0);
    AttributeSet{}.put(writer);
    writer.put_u32(3);  // no delegation, and why
    writer.put_u32(1);  // contention
    writer.put_bool(false);
}

inline void put_exchange_id(xdr::Writer &writer, uint64_t client, bool confirmed, std::string_view owner = "server") {
    writer.put_u64(client);
    writer.put_u32(1);
    writer.put_u32(kFlagUseNonPnfs | (confirmed ? kFlagConfirmed : 0));
    writer.put_u32(0);
    writer.put_u64(0);
    writer.put_string(owner);
    writer.put_string("scope");
    writer.put_u32(1);
    writer.put_string("domain");
    writer.put_string("name");
    writer.put_u64(0);
    writer.put_u32(0);
}

inline void put_channel(xdr::Writer &writer, uint32_t bytes, uint32_t slots, uint32_t operations = 64) {
    for (const uint32_t value : {0U, bytes, bytes, 8192U, operations, slots, 0U})
        writer.put_u32(value);
}

inline void put_create_session(xdr::Writer &writer, const SessionId &session, uint32_t bytes, uint32_t slots,
                               uint32_t operations = 64) {
    writer.put_fixed(session);
    writer.put_u32(1);
    writer.put_u32(0);
    put_channel(writer, bytes, slots, operations);
    put_channel(writer, 4096, 1);
}

inline void put_sequence(xdr::Writer &writer, const SessionId &session, uint32_t sequence, uint32_t slot,
                         uint32_t slots) {
    writer.put_fixed(session);
    for (const uint32_t value : {sequence, slot, slots - 1, slots - 1, 0U})
        writer.put_u32(value);
}

}  // namespace nfstdm::nfs4::samples
