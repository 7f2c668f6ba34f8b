// SPDX-License-Identifier: Apache-2.0
// Which connection a request goes to: the one on which it is expected to end first. A window of requests is as slow as
// the slowest of them, so a slow path must get few, and none that the others would wait for.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "nfstdm/rpc/channel.h"

namespace nfstdm::rpc {

using Channels = std::vector<std::unique_ptr<Channel>>;

// Null when no channel works, or when waiting is better than all that is free: each may carry connection_bytes.
Channel *choose_channel(const Channels &channels, const Request &request, std::size_t connection_bytes);

// A request that is taken from a channel to where it ends sooner.
struct Move {
    const Request *request;
    Channel *from;
};

// A request that holds up those behind it, or the end of it all: it has been under way for twice the time that it takes
// on a channel which has nothing to do and is twice as fast.
std::optional<Move> find_move(const Channels &channels);

}  // namespace nfstdm::rpc
