// SPDX-License-Identifier: Apache-2.0
// The results of each procedure when its status is NFS3_OK, read from behind that status (RFC 1813 section 3.3). The
// bytes are not trusted: false means that they are no such results. The reader is left where the results end; that
// nothing follows is the caller's to check.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "nfstdm/volume/volume.h"
#include "nfstdm/xdr/reader.h"

namespace nfstdm::nfs3 {

// SETATTR tells nothing that is used.
struct NoReply {};

bool get_getattr(xdr::Reader &reader, Attributes &reply);
bool get_lookup(xdr::Reader &reader, LookupReply &reply);
bool get_readlink(xdr::Reader &reader, std::string &reply);
bool get_write(xdr::Reader &reader, WriteReply &reply);
bool get_commit(xdr::Reader &reader, CommitReply &reply);
bool get_made(xdr::Reader &reader, CreateReply &reply);         // CREATE and MKDIR
bool get_removed(xdr::Reader &reader, DirectoryChange &reply);  // REMOVE and RMDIR
bool get_changed(xdr::Reader &reader, NoReply &reply);          // SETATTR
bool get_readdir(xdr::Reader &reader, DirectoryReply &reply);
bool get_readdirplus(xdr::Reader &reader, DirectoryReply &reply);
bool get_fsstat(xdr::Reader &reader, FsStatReply &reply);
bool get_fsinfo(xdr::Reader &reader, FsInfoReply &reply);

// READ: the results end with the length of the data, of which landed bytes were put elsewhere.
bool get_read(xdr::Reader &reader, std::size_t landed, ReadReply &reply);
// Where the data begin in the results of READ, the status included; see rpc::DataPosition.
std::size_t read_data_position(std::span<const std::byte> results);

}  // namespace nfstdm::nfs3
