// SPDX-License-Identifier: Apache-2.0
// Plain TCP.
#pragma once

#include <utility>

#include "nfstdm/base/descriptor.h"
#include "nfstdm/rpc/transport/transport.h"

namespace nfstdm::rpc {

class TcpTransport final : public Transport {
  public:
    // Takes a connected, non-blocking socket.
    explicit TcpTransport(Descriptor connected) : socket_(std::move(connected)) {}
    ~TcpTransport() override;

    int descriptor() const override { return socket_.get(); }
    Result<std::size_t> receive(std::span<const iovec> places) override;
    Result<std::size_t> send(std::span<const iovec> pieces) override;
    std::size_t unacknowledged() const override;
    void close_behind() override;

  private:
    Descriptor socket_;
};

}  // namespace nfstdm::rpc
