// SPDX-License-Identifier: Apache-2.0
// Fills the records of the storage interface.
#pragma once

#include <cstdint>
#include <string_view>

#include "include/tdm.h"
#include "nfstdm/files/directory_stream.h"
#include "nfstdm/files/open_files.h"
#include "nfstdm/files/path_operations.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

TdmAttributes to_record(const Attributes &attributes);
TdmAttributes to_record(const Attributes &attributes, const ObjectName &name);
TdmFsInfo to_record(const FsInfoReply &info);
TdmFsStat to_record(const FsStatReply &stat);
TdmFileInfo to_record(const OpenedFile &file, uint32_t block_size);

// position: of the entry, from 0; its cookie is the position after it.
void fill_entry(const DirectoryStream::Entry &entry, uint64_t position, TdmDirEntry &record);

// Copies a text with its terminator into size bytes, cut when it is longer. Does nothing without a buffer.
void fill_text(std::string_view text, char *buffer, uint32_t size);

}  // namespace nfstdm
