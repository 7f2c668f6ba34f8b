// SPDX-License-Identifier: Apache-2.0
// The one place where the library's upper half meets a protocol.
#pragma once

#include "nfstdm/base/trace.h"
#include "nfstdm/files/mounted_volume.h"

namespace nfstdm {

// The trace must outlive every volume made.
VolumeFactory protocol_volume_factory(const Trace &trace);

}  // namespace nfstdm
