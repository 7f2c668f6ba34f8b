// SPDX-License-Identifier: Apache-2.0
// Where tslnfstab lies.
#pragma once

#include <string>

#include "nfstdm/mounts/tslnfstab.h"
#include "nfstdm/status.h"

namespace nfstdm {

// Reads dbs/tslnfstab of an installation home. No home (empty) and no such file mean no servers. A file that is there
// and cannot be read is a failure: its mounts must not be taken for local paths.
Result<Tslnfstab> load_tslnfstab(const std::string &home);

}  // namespace nfstdm
