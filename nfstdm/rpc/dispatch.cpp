// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/dispatch.h"

#include <algorithm>
#include <chrono>

namespace nfstdm::rpc {

namespace {

using Clock = RateMeter::Clock;
using Seconds = std::chrono::duration<double>;

constexpr double kClearlyFaster = 2;
// So long a request waits before a connection is given up for it, which takes as long to be replaced on many networks.
constexpr double kConnectionSeconds = 0.05;

// What is not known yet is taken for as fast as the best.
double best_rate(const Channels &channels, Clock::time_point now) {
    double best = 0;
    for (const auto &channel : channels)
        if (channel->usable() && channel->meter().known(now)) best = std::max(best, channel->meter().rate());
    return best > 0 ? best : 1;
}

// The fastest of those that have nothing to do; null when there is none that was measured, however long ago: with
// nothing to do nothing new is learnt.
Channel *fastest_idle(const Channels &channels) {
    Channel *best = nullptr;
    for (const auto &channel : channels) {
        if (!channel->usable() || channel->weight() > 0 || !channel->meter().measured()) continue;
        if (best == nullptr || channel->meter().rate() > best->meter().rate()) best = channel.get();
    }
    return best;
}

const Request *oldest_movable(const Channel &channel) {
    const Request *oldest = nullptr;
    channel.for_each([&](const Request &request) {
        if (request.moved || !channel.movable(request)) return;
        if (oldest == nullptr || request.sequence < oldest->sequence) oldest = &request;
    });
    return oldest;
}

}  // namespace

Channel *choose_channel(const Channels &channels, const Request &request, std::size_t connection_bytes) {
    const bool several =
        std::count_if(channels.begin(), channels.end(), [](const auto &channel) { return channel->usable(); }) > 1;
    const auto now = Clock::now();
    const double best = several ? best_rate(channels, now) : 1;
    Channel *chosen = nullptr;
    double earliest = 0;
    for (const auto &channel : channels) {
        if (!channel->usable()) continue;
        const bool known = several && channel->meter().known(now);
        // One bulk request tells what more would take.
        const bool on_trial = several && !known && channel->weight() >= kBulkBytes;
        if (on_trial && request.weight() >= kBulkBytes) continue;
        const double rate = known ? channel->meter().rate() : best;
        const double end = static_cast<double>(channel->weight() + request.weight()) / rate;
        if (chosen == nullptr || end < earliest) {
            chosen = channel.get();
            earliest = end;
        }
    }
    return chosen != nullptr && chosen->weight() < connection_bytes ? chosen : nullptr;
}

std::optional<Move> find_move(const Channels &channels) {
    if (channels.size() < 2) return std::nullopt;
    const auto now = Clock::now();
    const Channel *to = fastest_idle(channels);
    if (to == nullptr) return std::nullopt;
    for (const auto &from : channels) {
        const bool slower = !from->meter().known(now) || from->meter().rate() * kClearlyFaster < to->meter().rate();
        const Request *late = from.get() != to && from->usable() && slower ? oldest_movable(*from) : nullptr;
        if (late == nullptr) continue;
        const double there = static_cast<double>(late->weight()) / to->meter().rate();
        const double least = from->ends_with(*late) ? kConnectionSeconds : 0;
        if (Seconds(now - late->given).count() > std::max(kClearlyFaster * there, least)) return Move{late, from.get()};
    }
    return std::nullopt;
}

}  // namespace nfstdm::rpc
