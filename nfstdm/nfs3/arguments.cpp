// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/arguments.h"

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/nfs3/fields.h"

namespace nfstdm::nfs3 {

void put_object(xdr::Writer &writer, const FileHandle &object) {
    put_handle(writer, object);
}

void put_entry(xdr::Writer &writer, const FileHandle &directory, std::string_view name) {
    put_handle(writer, directory);
    put_name(writer, name);
}

void put_setattr(xdr::Writer &writer, const FileHandle &object, const SetAttributes &set) {
    put_handle(writer, object);
    put_set_attributes(writer, set);
    writer.put_bool(false);  // no guard
}

void put_read(xdr::Writer &writer, const FileHandle &file, uint64_t offset, uint32_t count) {
    put_handle(writer, file);
    writer.put_u64(offset);
    writer.put_u32(count);
}

void put_write(xdr::Writer &writer, const FileHandle &file, uint64_t offset, uint32_t count, Stability stability) {
    put_handle(writer, file);
    writer.put_u64(offset);
    writer.put_u32(count);
    writer.put_u32(static_cast<uint32_t>(stability));
    writer.put_u32(count);
}

void put_create(xdr::Writer &writer, const FileHandle &directory, std::string_view name, const SetAttributes &set) {
    put_entry(writer, directory, name);
    writer.put_u32(static_cast<uint32_t>(CreateMode::unchecked));
    put_set_attributes(writer, set);
}

void put_mkdir(xdr::Writer &writer, const FileHandle &directory, std::string_view name, uint32_t mode) {
    put_entry(writer, directory, name);
    put_set_attributes(writer, {mode, {}});
}

void put_readdir(xdr::Writer &writer, const FileHandle &directory, uint64_t cookie, uint64_t verifier, uint32_t count) {
    put_handle(writer, directory);
    writer.put_u64(cookie);
    writer.put_u64(verifier);
    writer.put_u32(count);
}

void put_readdirplus(xdr::Writer &writer, const FileHandle &directory, uint64_t cookie, uint64_t verifier,
                     uint32_t names_count, uint32_t count) {
    put_readdir(writer, directory, cookie, verifier, names_count);
    writer.put_u32(count);
}

void put_commit(xdr::Writer &writer, const FileHandle &file) {
    put_handle(writer, file);
    writer.put_u64(0);  // from the start
    writer.put_u32(0);  // to the end
}

}  // namespace nfstdm::nfs3
