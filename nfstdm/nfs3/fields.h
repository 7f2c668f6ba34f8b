// SPDX-License-Identifier: Apache-2.0
// The pieces that arguments and results of NFS version 3 are made of (RFC 1813 section 2.5 and 2.6). A get that fails
// leaves the reader failed; the maximum of every field is enforced both ways.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/volume/volume.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/words.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::nfs3 {

// The RFC sets no limit to names and link targets. No file system has longer names than this, so none is sent; what a
// directory holds is read whatever its length, for one odd name must not hide the others. A target is a path.
constexpr std::size_t kFileNameMaximum = 255;
constexpr std::size_t kTargetMaximum = 4096;

constexpr std::size_t kAttributesSize = 84;  // fattr3
constexpr std::size_t kPostAttributesMaximum = xdr::kWord + kAttributesSize;
constexpr std::size_t kPreAttributesSize = 24;  // wcc_attr: size and two times
constexpr std::size_t kPreAttributesMaximum = xdr::kWord + kPreAttributesSize;
constexpr std::size_t kWccMaximum = kPreAttributesMaximum + kPostAttributesMaximum;
constexpr std::size_t kPostHandleMaximum = 2 * xdr::kWord + kHandleMaximum;

// One to 64 bytes.
bool get_handle(xdr::Reader &reader, FileHandle &handle);
bool get_attributes(xdr::Reader &reader, Attributes &attributes);
bool get_post_attributes(xdr::Reader &reader, std::optional<Attributes> &attributes);
bool get_post_handle(xdr::Reader &reader, std::optional<FileHandle> &handle);
// wcc_data; of a file the state before the operation is not used.
bool get_wcc(xdr::Reader &reader, DirectoryChange &change);
bool get_wcc(xdr::Reader &reader, std::optional<Attributes> &after);
bool get_name(xdr::Reader &reader, std::string &name);

void put_handle(xdr::Writer &writer, const FileHandle &handle);
void put_name(xdr::Writer &writer, std::string_view name);
// sattr3; what is not given stays as it is.
void put_set_attributes(xdr::Writer &writer, const SetAttributes &set);

}  // namespace nfstdm::nfs3
