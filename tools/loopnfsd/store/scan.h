// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <dirent.h>

#include <functional>

#include "tools/loopnfsd/base/status.h"
#include "tools/loopnfsd/base/unique_fd.h"

namespace loopnfsd {

// Calls back for every name in a directory but "." and "..", in the file system's order. Takes ownership of the
// descriptor, which must be readable.
NfsStatus scan_directory(UniqueFd directory, const std::function<void(const dirent &)> &entry);

}  // namespace loopnfsd
