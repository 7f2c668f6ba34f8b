// SPDX-License-Identifier: Apache-2.0
// Exports of NFSv3 servers as volumes.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/trace.h"
#include "nfstdm/remote/server.h"
#include "nfstdm/rpc/timing.h"
#include "nfstdm/volume/server_config.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs3 {

// Makes volumes; those of one server share its connections. The loop and the trace must outlive the factory and every
// volume, the factory need not outlive its volumes.
class Exports {
  public:
    Exports(EventLoop &loop, const Trace &trace, const rpc::Timing &timing = {})
        : loop_(loop), trace_(trace), timing_(timing) {}

    // Never fails and contacts nobody: what is wrong with a server or an export is what attach() reports. Both are
    // copied. Servers are told apart by name and line.
    //
    // Volumes keep the promises of Volume, and these:
    // - Destroying a volume completes its operations with ECANCELED from inside the destructor; likewise detach(),
    // which
    //   makes a later attach() contact the server again.
    // - attach() gives up before the server's mnt_timeout when no path leads to the server at all. An operation on a
    //   volume that is not attached fails with ENOTCONN.
    // - An operation that is not answered within io_timeout fails with ETIMEDOUT. A stale handle is ESTALE.
    // - busy() counts over all exports of the server.
    // - CREATE or MKDIR that may have been done before the connection broke succeeds without a handle; MKDIR then says
    //   since when.
    std::unique_ptr<Volume> open(const ServerConfig &config, const ServerExport &share);

  private:
    EventLoop &loop_;
    const Trace &trace_;
    const rpc::Timing timing_;
    std::map<std::pair<std::string, unsigned>, std::weak_ptr<remote::Server>> servers_;
};

// For a single export: a volume with connections of its own.
std::unique_ptr<Volume> open_volume(EventLoop &loop, const ServerConfig &config, const ServerExport &share,
                                    const Trace &trace, const rpc::Timing &timing = {});

}  // namespace nfstdm::nfs3
