// SPDX-License-Identifier: Apache-2.0
// Whether a server that could not be used offers NFSv4 and no NFSv3: such a server has no MOUNT program and often no
// portmapper, and what their absence looks like tells nobody why.
#pragma once

#include <functional>
#include <memory>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/client.h"

namespace nfstdm::remote {

class Server;

class VersionQuestion {
  public:
    // done is called once, from the loop, unless the question is destroyed first. It takes limit at most. port is the
    // NFS program's where a path has none of its own.
    VersionQuestion(Server &server, uint16_t port, rpc::Duration limit, std::function<void(bool v4_only)> done);

  private:
    void ask(rpc::Client &client, rpc::Duration limit, Status &answer);

    std::unique_ptr<rpc::Client> third_;
    std::unique_ptr<rpc::Client> fourth_;
    Status with_third_;
    Status with_fourth_;
    int open_ = 2;
    std::function<void(bool)> done_;
};

}  // namespace nfstdm::remote
