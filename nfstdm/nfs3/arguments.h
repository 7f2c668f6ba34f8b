// SPDX-License-Identifier: Apache-2.0
// The arguments of each procedure, appended to a call (RFC 1813 section 3.3). A name or handle beyond its maximum
// leaves the writer failed.
#pragma once

#include <cstdint>
#include <string_view>

#include "nfstdm/volume/volume.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::nfs3 {

// The arguments of GETATTR, READLINK, FSSTAT and FSINFO: an object.
void put_object(xdr::Writer &writer, const FileHandle &object);
// The arguments of LOOKUP, REMOVE and RMDIR: a name in a directory.
void put_entry(xdr::Writer &writer, const FileHandle &directory, std::string_view name);
void put_setattr(xdr::Writer &writer, const FileHandle &object, const SetAttributes &set);
void put_read(xdr::Writer &writer, const FileHandle &file, uint64_t offset, uint32_t count);
// Ends with the length of the data; the data follow on the wire from where they are.
void put_write(xdr::Writer &writer, const FileHandle &file, uint64_t offset, uint32_t count, Stability stability);
void put_create(xdr::Writer &writer, const FileHandle &directory, std::string_view name, const SetAttributes &set);
void put_mkdir(xdr::Writer &writer, const FileHandle &directory, std::string_view name, uint32_t mode);
void put_readdir(xdr::Writer &writer, const FileHandle &directory, uint64_t cookie, uint64_t verifier, uint32_t count);
void put_readdirplus(xdr::Writer &writer, const FileHandle &directory, uint64_t cookie, uint64_t verifier,
                     uint32_t names_count, uint32_t count);
// Of the whole file.
void put_commit(xdr::Writer &writer, const FileHandle &file);

}  // namespace nfstdm::nfs3
