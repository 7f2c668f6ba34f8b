// SPDX-License-Identifier: Apache-2.0
// Waits for one asynchronous operation, serving the loop meanwhile.
#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

// start is given a completion to pass on. The answer lives on the heap, because an exception that passes through the
// loop may end this call before the operation ends.
template <class T, class Start>
Result<T> await(EventLoop &loop, Start &&start) {
    auto answer = std::make_shared<std::optional<Result<T>>>();
    start([answer](Result<T> result) { *answer = std::move(result); });
    loop.run_until([&answer] { return answer->has_value(); });
    return std::move(**answer);
}

template <class Start>
Status await_done(EventLoop &loop, Start &&start) {
    auto answer = std::make_shared<std::optional<Status>>();
    start([answer](Status status) { *answer = std::move(status); });
    loop.run_until([&answer] { return answer->has_value(); });
    return std::move(**answer);
}

}  // namespace nfstdm
