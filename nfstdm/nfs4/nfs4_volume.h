// SPDX-License-Identifier: Apache-2.0
// Exports of servers that speak NFS version 4, minor version 1 or 2, as volumes.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/trace.h"
#include "nfstdm/rpc/timing.h"
#include "nfstdm/volume/server_config.h"
#include "nfstdm/volume/version.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs4 {

class SharedServer;

// Makes volumes; those of one server share its session and connections. The loop and the trace must outlive the factory
// and every volume, the factory need not outlive its volumes. The promises are those of nfs3::Exports.
class Exports {
  public:
    Exports(EventLoop &loop, const Trace &trace, const rpc::Timing &timing = {})
        : loop_(loop), trace_(trace), timing_(timing) {}

    std::unique_ptr<Volume> open(const ServerConfig &config, const ServerExport &share, const NfsVersion &version);

  private:
    EventLoop &loop_;
    const Trace &trace_;
    const rpc::Timing timing_;
    std::map<std::pair<std::string, unsigned>, std::weak_ptr<SharedServer>> servers_;
};

}  // namespace nfstdm::nfs4
