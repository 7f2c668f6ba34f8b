// SPDX-License-Identifier: Apache-2.0
// A server and the session with it, which its exports share.
#pragma once

#include <cstdint>

#include "nfstdm/nfs4/session.h"
#include "nfstdm/remote/server.h"

namespace nfstdm::nfs4 {

class SharedServer {
  public:
    SharedServer(EventLoop &loop, const ServerConfig &config, const Trace &trace, const rpc::Timing &timing,
                 uint32_t minor_version)
        : server_(loop, config, trace, timing), session_(server_, minor_version) {}

    remote::Server &server() { return server_; }
    Session &session() { return session_; }

  private:
    remote::Server server_;
    Session session_;
};

}  // namespace nfstdm::nfs4
