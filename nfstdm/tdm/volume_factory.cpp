// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/volume_factory.h"

#include <memory>
#include <optional>

#include "nfstdm/nfs3/nfs3_volume.h"

namespace nfstdm {

// A session has one loop, so one factory serves it, and the exports of a server share its connections.
VolumeFactory protocol_volume_factory(const Trace &trace) {
    auto volumes = std::make_shared<std::optional<nfs3::VolumeFactory>>();
    return [&trace, volumes](EventLoop &loop, const ServerConfig &server, const ServerExport &share) {
        if (!*volumes) volumes->emplace(loop, trace);
        return (*volumes)->open(server, share);
    };
}

}  // namespace nfstdm
