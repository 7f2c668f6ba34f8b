// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "nfstdm/base/descriptor.h"

namespace loopnfsd {

using UniqueFd = nfstdm::Descriptor;

}  // namespace loopnfsd
