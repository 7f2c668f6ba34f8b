// SPDX-License-Identifier: Apache-2.0
// What one session knows along a path, for the session of a forked process on the same configuration: it need not ask
// a server again for what a listing told.
#pragma once

#include <string>
#include <string_view>

#include "nfstdm/files/mount_set.h"

namespace nfstdm {

// Gives a record of the directories on the path and of the object at its end, as far as they are known; empty when none
// is. The directories are looked up when they are not known any more, the object is not.
std::string knowledge_of(const MountSet &mounts, std::string_view path);

// Takes such a record, made on this host by the same library. Returns false for what is none.
[[nodiscard]] bool take_knowledge(const MountSet &mounts, std::string_view record);

}  // namespace nfstdm
