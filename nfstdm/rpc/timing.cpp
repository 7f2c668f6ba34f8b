// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/timing.h"

#include <algorithm>

namespace nfstdm::rpc {

Timing Timing::within(Duration limit) const {
    Timing timing = *this;
    if (limit <= Duration::zero()) return timing;
    constexpr int kPathsInTime = 3;  // the second can fall silent as well
    timing.silence_most = std::min(silence_most, limit / kPathsInTime);
    timing.silence = std::min(silence, timing.silence_most);
    timing.probe = std::min(probe, timing.silence / 2);
    return timing;
}

}  // namespace nfstdm::rpc
