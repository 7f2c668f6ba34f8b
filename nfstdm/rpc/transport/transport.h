// SPDX-License-Identifier: Apache-2.0
// What carries the bytes of a connection. None of these functions waits: the owner watches the descriptor.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <memory>
#include <span>

#include "nfstdm/base/status.h"

namespace nfstdm::rpc {

// Closes at once when it is destroyed; what is still unsent is dropped.
class Transport {
  public:
    Transport() = default;
    virtual ~Transport() = default;
    Transport(const Transport &) = delete;
    Transport &operator=(const Transport &) = delete;

    virtual int descriptor() const = 0;

    // Fills the places in their order, as far as bytes have come, and says how many that were; 0 = none for now. It
    // fails when no more will come. Less than there is room for means that there is nothing more for now.
    virtual Result<std::size_t> receive(std::span<const iovec> places) = 0;

    // Takes the pieces in their order, as far as there is room, and says how many bytes that were; 0 = none for now.
    // Less than was offered means that there is no room for more now. What was taken need not be offered again.
    virtual Result<std::size_t> send(std::span<const iovec> pieces) = 0;

    // Bytes taken by send() that the peer has not acknowledged.
    virtual std::size_t unacknowledged() const = 0;
};

}  // namespace nfstdm::rpc
