// SPDX-License-Identifier: Apache-2.0
// What carries the bytes of a connection. None of these functions waits: the owner watches the descriptor.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "nfstdm/base/descriptor.h"
#include "nfstdm/base/status.h"

namespace nfstdm::rpc {

// Closes at once when it is destroyed; what is still unsent is dropped, but behind close_behind().
class Transport {
  public:
    Transport() = default;
    virtual ~Transport() = default;
    Transport(const Transport &) = delete;
    Transport &operator=(const Transport &) = delete;

    virtual int descriptor() const = 0;

    // Goes on with what stands between the connection and its first bytes: the poll(2) events to call again for, 0 when
    // it is done. Nothing else is called before.
    virtual Result<short> handshake() { return short{0}; }

    // Fills the places in their order, as far as bytes have come, and says how many that were; 0 = none for now. It
    // fails when no more will come. Less than there is room for means that there is nothing more for now.
    virtual Result<std::size_t> receive(std::span<const iovec> places) = 0;

    // Takes the pieces in their order, as far as there is room, and says how many bytes that were; 0 = none for now.
    // Less than was offered means that there is no room for more now. What was taken need not be offered again.
    virtual Result<std::size_t> send(std::span<const iovec> pieces) = 0;

    // Bytes taken by send() that the peer has not acknowledged.
    virtual std::size_t unacknowledged() const = 0;

    // Whether there is more to receive of which the descriptor does not tell.
    virtual bool holds_received() const { return false; }
    // Whether bytes taken by send() still wait for the descriptor; send() without pieces goes on with them.
    virtual bool holds_unsent() const { return false; }

    // What the trace should tell of a transport whose handshake is done; nothing of plain TCP that nobody wanted
    // otherwise.
    virtual std::string remark() const { return {}; }

    // Closes behind what was taken, which still arrives, where the transport can do that. It is only to be destroyed
    // then.
    virtual void close_behind() {}
};

// Makes the transport of a connected socket; host and port are those that were asked for. An empty one stands for plain
// TCP.
using TransportMaker =
    std::function<std::unique_ptr<Transport>(Descriptor connected, const std::string &host, uint16_t port)>;

}  // namespace nfstdm::rpc
