// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/volume_factory.h"

namespace nfstdm {

// No protocol is built in yet.
VolumeFactory protocol_volume_factory(const Trace &) {
    return [](EventLoop &, const ServerConfig &, const ServerExport &) -> std::unique_ptr<Volume> { return nullptr; };
}

}  // namespace nfstdm
