// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "nfstdm/base/event_loop.h"
#include "tools/loopnfsd/base/unique_fd.h"

namespace loopnfsd {

struct SocketAddress {
    std::string host;  // numeric
    uint16_t port = 0;

    std::string text() const;  // "127.0.0.1:2049", "[::1]:2049"
};

// A listening TCP socket.
class Listener {
  public:
    // client: numeric address of the peer. The loop must outlive the listener.
    using Accepted = std::function<void(UniqueFd socket, std::string client)>;
    Listener(nfstdm::EventLoop &loop, Accepted accepted) : loop_(loop), accepted_(std::move(accepted)) {}
    ~Listener();
    Listener(const Listener &) = delete;
    Listener &operator=(const Listener &) = delete;

    // Port 0 takes a free one. Gives what is wrong, or nothing.
    std::string open(const SocketAddress &address);
    const SocketAddress &address() const { return address_; }

  private:
    void accept();

    nfstdm::EventLoop &loop_;
    Accepted accepted_;
    UniqueFd socket_;
    SocketAddress address_;
};

}  // namespace loopnfsd
