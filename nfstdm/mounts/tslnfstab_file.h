// SPDX-License-Identifier: Apache-2.0
// Where tslnfstab lies.
#pragma once

#include <string>

#include "nfstdm/base/status.h"
#include "nfstdm/mounts/tslnfstab.h"

namespace nfstdm {

// Reads dbs/tslnfstab of an installation home. No home (empty) and no such file mean no servers. A file that is there
// and cannot be read is a failure: its mounts must not be taken for local paths. So is one that is missing while its
// backup holds something, for longer than a change of it takes.
Result<Tslnfstab> load_tslnfstab(const std::string &home);

}  // namespace nfstdm
