// SPDX-License-Identifier: Apache-2.0
// Asking the storage interface what a path is.
#pragma once

#include <cstdint>

#include "include/tdm.h"
#include "platform/path_buffer.h"

struct Identification {
    uint32_t status;
    uint32_t code;

    bool failed() const { return status != 0 || code == TDM_IDENTIFIED_FAILED; }
};

// Opens a file when it is a remote one; info is filled then. Traces nothing.
Identification identify(const PathBuffer &path, TdmFileInfo &info);

enum class FileKind : uint8_t { remote, local, failed };

// As identify(), with message 65036 in the name of function for a failure and, as a remark, for a local file. Every
// code but those two stands for a remote file.
FileKind identify_existing(const char *function, const PathBuffer &path, TdmFileInfo &info);
