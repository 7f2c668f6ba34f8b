// SPDX-License-Identifier: Apache-2.0
// Brings a new transport to where it carries bytes.
#pragma once

#include <functional>
#include <memory>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/base/status.h"
#include "nfstdm/rpc/request.h"
#include "nfstdm/rpc/transport/transport.h"

namespace nfstdm::rpc {

class Handshake {
  public:
    using Done = std::function<void(Result<std::unique_ptr<Transport>>)>;

    explicit Handshake(EventLoop &loop) : loop_(loop), timer_(loop) {}
    ~Handshake() { cancel(); }
    Handshake(const Handshake &) = delete;
    Handshake &operator=(const Handshake &) = delete;

    // done is called once, from the loop or at once, unless cancel() comes first; then never. limit is for the whole.
    void begin(std::unique_ptr<Transport> transport, Duration limit, Done done);
    void cancel();

  private:
    void step();
    void finish(Result<std::unique_ptr<Transport>> result);

    EventLoop &loop_;
    ScopedTimer timer_;
    std::unique_ptr<Transport> transport_;
    short watched_ = 0;
    Done done_;
};

}  // namespace nfstdm::rpc
