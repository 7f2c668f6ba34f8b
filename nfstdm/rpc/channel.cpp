// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/channel.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace nfstdm::rpc {

Channel::Channel(EventLoop &loop, ChannelOwner &owner, ChannelConfig config)
    : owner_(owner), config_(std::move(config)), connection_(loop, *this), timer_(loop) {}

std::string Channel::where() const {
    const Path &path = config_.path;
    const bool bare_v6 = path.host.find(':') != std::string::npos;
    return (bare_v6 ? "[" + path.host + "]" : path.host) + ":" + std::to_string(path.port);
}

void Channel::wake() {
    if (state_ == State::idle) begin_round();
}

void Channel::close() {
    timer_.cancel();
    connection_.close();
    static_cast<void>(connection_.take_all());
    state_ = State::idle;
    attempts_ = 0;
    unreachable_ = false;
    probing_ = false;
}

// One round tries every address once. A name that was found is not asked for again: the resolver may block, and other
// channels have work to do meanwhile.
void Channel::begin_round() {
    state_ = State::connecting;
    next_address_ = 0;
    timed_out_ = false;
    if (addresses_.empty()) {
        auto resolved = resolve(config_.path.host, config_.path.port);
        if (resolved.ok())
            addresses_ = std::move(resolved.value());
        else
            last_failure_ = resolved.status();
    }
    connect_next();
}

void Channel::connect_next() {
    while (next_address_ < addresses_.size()) {
        const Address &address = addresses_[next_address_++];
        const Status started = connection_.open(address, config_.path.local, config_.source);
        if (started.ok()) {
            timer_.after(config_.timing.connect, [this] {
                connection_.close();
                timed_out_ = true;
                last_failure_ = {ETIMEDOUT, where() + ": no answer to the connection request"};
                connect_next();
            });
            return;
        }
        last_failure_ = started.in(where());
    }
    // From the loop, never from inside the submission that woke the channel.
    timer_.after(Duration::zero(), [this] { lost(last_failure_, false); });
}

void Channel::connection_opened() {
    timer_.cancel();
    proven_ = false;
    quiet_ = {};
    progress_ = connection_.progress();
    if (!doubted_) return become_usable();
    state_ = State::proving;
    probe();
}

void Channel::become_usable() {
    state_ = State::usable;
    unreachable_ = false;
    owner_.channel_usable();
}

void Channel::probe() {
    probing_ = true;
    auto null_call = owner_.new_probe();
    null_call->owner = this;
    connection_.send(std::move(null_call));
}

void Channel::connection_answered(std::unique_ptr<Request> request) {
    if (request->owner == this) {
        probing_ = false;
        doubted_ = false;
        if (state_ == State::proving) become_usable();
        return;
    }
    proven_ = true;
    attempts_ = 0;
    patience_ = 1;
    owner_.channel_answered(std::move(request));
}

void Channel::connection_closed(const Status &why, bool nonsense) {
    timer_.cancel();
    if (state_ == State::connecting) {
        last_failure_ = why.in(where());
        return connect_next();
    }
    lost(why.in(where()), nonsense);
}

// The round or the connection is over.
void Channel::lost(const Status &why, bool nonsense) {
    unreachable_ = unreachable_ || (state_ == State::connecting && !timed_out_);
    probing_ = false;
    auto requests = connection_.take_all();
    std::erase_if(requests, [this](const auto &request) { return request->owner == this; });
    wait_and_retry();
    owner_.channel_lost(std::move(requests), why, nonsense);
}

// A connection that had brought answers is replaced at once, anything else after a while.
void Channel::wait_and_retry() {
    state_ = State::waiting;
    Duration delay{};
    if (!std::exchange(proven_, false)) {
        constexpr unsigned kDoublings = 16;
        delay = std::min(config_.timing.backoff_first * (1U << std::min(attempts_, kDoublings)),
                         config_.timing.backoff_most);
        ++attempts_;
    }
    timer_.after(delay, [this] {
        state_ = State::idle;
        if (owner_.has_work()) wake();
    });
}

void Channel::tick(Duration elapsed, bool alone) {
    if (state_ != State::usable && state_ != State::proving) return;
    const uint64_t progress = connection_.progress();
    if (progress != std::exchange(progress_, progress) || connection_.idle()) {
        quiet_ = {};
        return;
    }
    quiet_ += elapsed;
    if (quiet_ >= config_.timing.probe && !probing_) probe();
    const Duration limit = (alone ? config_.timing.silence_alone : config_.timing.silence) * patience_;
    if (quiet_ < limit || connection_.is_closed()) return;
    patience_ = std::min(patience_ * 2, config_.timing.patience_maximum);
    doubted_ = true;
    connection_.close();
    lost({ETIMEDOUT, where() + ": the connection fell silent"}, false);
}

}  // namespace nfstdm::rpc
