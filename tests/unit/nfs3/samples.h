// SPDX-License-Identifier: Apache-2.0
// Well-formed results as a server writes them, for tests to send and to damage.
#pragma once

#include <cstdint>
#include <string_view>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::nfs3::samples {

inline void put_attributes(xdr::Writer &writer, uint32_t type = 1, uint64_t size = 1000) {
    for (const uint32_t word : {type, 0100644U, 2U, 501U, 502U})
        writer.put_u32(word);
    writer.put_u64(size);
    writer.put_u64(4096);  // used
    writer.put_u64(0);     // device
    writer.put_u64(77);    // fsid
    writer.put_u64(88);    // fileid
    for (const uint32_t word : {11U, 12U, 21U, 22U, 31U, 32U})
        writer.put_u32(word);
}

inline void put_post_attributes(xdr::Writer &writer, uint32_t type = 1) {
    writer.put_bool(true);
    put_attributes(writer, type);
}

inline void put_wcc(xdr::Writer &writer) {
    writer.put_bool(true);
    writer.put_u64(999);  // size and times before
    writer.put_u64(1);
    writer.put_u64(2);
    put_post_attributes(writer);
}

inline void put_handle(xdr::Writer &writer, std::string_view handle = "handle") {
    writer.put_string(handle);
}

inline void put_entry(xdr::Writer &writer, uint64_t cookie, std::string_view name, bool plus) {
    writer.put_bool(true);
    writer.put_u64(cookie + 100);  // fileid
    writer.put_string(name);
    writer.put_u64(cookie);
    if (!plus) return;
    put_post_attributes(writer);
    writer.put_bool(true);
    put_handle(writer, name);
}

inline void put_directory(xdr::Writer &writer, bool plus) {
    put_post_attributes(writer, 2);
    writer.put_u64(0xFEED);
    put_entry(writer, 1, ".", plus);
    put_entry(writer, 2, "a name", plus);
    writer.put_bool(false);
    writer.put_bool(true);  // eof
}

inline void put_fsinfo(xdr::Writer &writer, uint32_t read_maximum = 65536, uint32_t write_maximum = 32768,
                       uint32_t readdir_preferred = 4096) {
    put_post_attributes(writer, 2);
    for (const uint32_t word : {read_maximum, 16384U, 512U, write_maximum, 8192U, 256U, readdir_preferred})
        writer.put_u32(word);
    writer.put_u64(uint64_t{1} << 40);
    writer.put_u64(1);
    writer.put_u32(0x1B);
}

inline void put_fsstat(xdr::Writer &writer) {
    put_post_attributes(writer, 2);
    for (const uint64_t number : {600U, 500U, 400U, 300U, 200U, 100U})
        writer.put_u64(number);
    writer.put_u32(60);
}

inline void put_made(xdr::Writer &writer) {
    writer.put_bool(true);
    put_handle(writer);
    put_post_attributes(writer);
    put_wcc(writer);
}

inline void put_lookup(xdr::Writer &writer) {
    put_handle(writer);
    put_post_attributes(writer);
    put_post_attributes(writer, 2);
}

inline void put_write(xdr::Writer &writer, uint32_t count, uint32_t committed, uint64_t verifier) {
    put_wcc(writer);
    writer.put_u32(count);
    writer.put_u32(committed);
    writer.put_u64(verifier);
}

inline void put_read(xdr::Writer &writer, std::string_view data, bool eof) {
    put_post_attributes(writer);
    writer.put_u32(static_cast<uint32_t>(data.size()));
    writer.put_bool(eof);
    writer.put_string(data);
}

}  // namespace nfstdm::nfs3::samples
