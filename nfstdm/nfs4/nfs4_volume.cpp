// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/nfs4_volume.h"

#include "nfstdm/nfs4/export_volume.h"

namespace nfstdm::nfs4 {

std::unique_ptr<Volume> Exports::open(const ServerConfig &config, const ServerExport &share,
                                      const NfsVersion &version) {
    auto &known = servers_[{config.name, config.line}];
    auto server = known.lock();
    if (server == nullptr) {
        server = std::make_shared<SharedServer>(loop_, config, trace_, timing_, version.minor);
        known = server;
        if (version.pnfs)
            trace_.write(TraceLevel::notice, TraceComponent::nfs, [&config] {
                return "server " + config.name + ": pNFS is not used, data goes through the server";
            });
    }
    return std::make_unique<ExportVolume>(std::move(server), share);
}

}  // namespace nfstdm::nfs4
