// SPDX-License-Identifier: Apache-2.0
// What a server's clock showed at the least, as far as its answers tell. Only change times tell it: no client can set
// them (RFC 1813 section 2.6, ctime). A change time that came at some moment was past on the server by then, so the
// clock was there or further on; the answers that say most are kept.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

class ServerClock {
  public:
    using TimePoint = EventLoop::Clock::time_point;

    // An object's attributes came at this moment.
    void saw(const Attributes &attributes, TimePoint when) {
        const auto ahead = since_epoch(attributes.change) - when.time_since_epoch();
        ahead_ = std::max(ahead_.value_or(ahead), ahead);
    }

    // Whether an object that changed last at this time can have been made after a moment, for all that is known. File
    // systems round: to a tick of the system's clock, or to whole seconds.
    bool may_be_after(const Time &change, TimePoint moment) const {
        constexpr std::chrono::milliseconds kTick{20};
        constexpr std::chrono::seconds kWhole{1};
        const std::chrono::nanoseconds rounding = change.nanoseconds == 0 ? std::chrono::nanoseconds(kWhole) : kTick;
        return !ahead_ || since_epoch(change) + rounding >= moment.time_since_epoch() + *ahead_;
    }

  private:
    // NFSv3 times have 32 bits of seconds; a protocol with more is not believed beyond what the sum can hold.
    static std::chrono::nanoseconds since_epoch(const Time &time) {
        return std::chrono::seconds(std::min<uint64_t>(time.seconds, UINT32_MAX)) +
               std::chrono::nanoseconds(time.nanoseconds);
    }

    std::optional<std::chrono::nanoseconds> ahead_;  // of this host's clock, at least
};

}  // namespace nfstdm
