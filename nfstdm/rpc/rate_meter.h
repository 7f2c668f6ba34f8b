// SPDX-License-Identifier: Apache-2.0
// How fast a connection moves bulk data: the bytes that moved while bulk requests were under way, by the time they had
// for it. What is older counts less.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nfstdm/base/event_loop.h"

namespace nfstdm::rpc {

// Requests that weigh as much count as bulk.
constexpr std::size_t kBulkBytes = std::size_t{64} << 10;

class RateMeter {
  public:
    using Clock = EventLoop::Clock;

    // progress: of the connection, in bytes since ever; busy: bulk requests are under way from now to the next look.
    void look(Clock::time_point now, uint64_t progress, bool busy);

    // A bulk request was answered, or taken back as it took too long: what is measured is not what buffers on the way
    // took in.
    void answered() { trusted_ = true; }

    // The connection is another one from now on.
    void forget() { *this = {}; }

    bool measured() const { return trusted_ && seconds_ > 0; }
    // Whether something is known, and recently enough: a slow connection is tried again at times, but so seldom that
    // this costs a twentieth of the time.
    bool known(Clock::time_point now) const;
    // Bytes a second; when it was measured.
    double rate() const;

    bool busy() const { return busy_; }

  private:
    bool busy_ = false;
    bool trusted_ = false;
    Clock::time_point last_{};
    uint64_t progress_ = 0;
    double bytes_ = 0;
    double seconds_ = 0;
};

}  // namespace nfstdm::rpc
