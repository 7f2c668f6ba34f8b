// SPDX-License-Identifier: Apache-2.0
// The question whether a server offers TLS for a program, and its answer (RFC 9289 section 4.1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "nfstdm/base/status.h"

namespace nfstdm::rpc {

class StartTlsQuestion {
  public:
    StartTlsQuestion(uint32_t program, uint32_t version, uint32_t xid);

    // The record to send.
    std::span<const std::byte> call() const { return call_; }

    // Bytes of the answer that are still to come, as far as that is known; 0 = it is complete. What follows the answer
    // is no part of it: it belongs to TLS.
    std::size_t missing() const;

    // Takes bytes of the answer, no more than are missing. Fails when they make no sense.
    Status take(std::span<const std::byte> bytes);

    // Of a complete answer: whether TLS is offered. Fails when it makes no sense.
    Result<bool> offered() const;

  private:
    Status on_mark();

    const uint32_t xid_;
    std::vector<std::byte> call_;
    std::vector<std::byte> mark_;
    std::vector<std::byte> record_;
    std::size_t record_size_ = 0;  // as far as the marks seen announce it
    bool last_ = false;            // the mark of the last fragment has been seen
};

}  // namespace nfstdm::rpc
