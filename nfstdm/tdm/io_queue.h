// SPDX-License-Identifier: Apache-2.0
// The I/O requests that were submitted and not yet collected.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <unordered_map>

#include "include/tdm.h"
#include "nfstdm/base/event_loop.h"
#include "nfstdm/files/open_files.h"

namespace nfstdm {

class IoQueue {
  public:
    using Requests = std::span<TdmIoRequest *const>;

    // Both must outlive the object.
    IoQueue(EventLoop &loop, OpenFiles &files) : loop_(loop), files_(files) {}

    // Starts all requests, or refuses all of them.
    Status submit(Requests requests);

    // Collects those of the requests that have completed within a time, in milliseconds or TDM_WAIT_FOREVER. count
    // becomes their number; the first failure among them is the result. Refuses a list with a request that is not under
    // way.
    Status reap(Requests requests, uint32_t timeout, uint32_t &count);

    // Collects nothing, and waits until every request has completed.
    void complete_all();

  private:
    struct Pending {
        TdmIoRequest *request = nullptr;
        uint64_t file = 0;
        bool completed = false;
        Status status;
    };
    using PendingMap = std::unordered_map<const TdmIoRequest *, std::shared_ptr<Pending>>;

    Status check(const TdmIoRequest *request) const;
    void start(TdmIoRequest &request);
    static void complete(Pending &pending, Status status);
    bool all_completed(Requests requests) const;
    void serve_connections(Requests requests);
    bool recover_files();
    void wait_for(Requests requests, uint32_t timeout);

    EventLoop &loop_;
    OpenFiles &files_;
    PendingMap pending_;
    EventLoop::Clock::time_point served_{};  // when the connections last had their turn
};

}  // namespace nfstdm
