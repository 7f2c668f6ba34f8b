// SPDX-License-Identifier: Apache-2.0
// What a client does as time passes: requests whose time is up, a server in doubt, silence that is told of.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nfstdm/base/record.h"
#include "nfstdm/rpc/client.h"

namespace nfstdm::rpc {

namespace {

std::string seconds_text(Duration duration) {
    const auto seconds = std::chrono::ceil<std::chrono::seconds>(duration).count();
    return std::to_string(seconds) + (seconds == 1 ? " second" : " seconds");
}

}  // namespace

void Client::tick() {
    const auto now = EventLoop::Clock::now();
    const Duration elapsed = std::min<Duration>(now - std::exchange(last_tick_, now), 2 * config_.timing.tick);
    // The next request starts the clock again. Work that comes and goes between two ticks keeps it going: a connection
    // that is being tried again has a limit to wait for.
    if (!std::exchange(worked_, false) && !has_work()) return;
    clock_ += elapsed;
    tick_timer_.after(config_.timing.tick, [this] { tick(); });
    for (const auto &channel : channels_)
        channel->tick(elapsed, channel->usable() && usable_channels() == 1);
    pump();
    expire();
    report_silence();
}

// Waiting behind others that are being answered is none of the time that the server may take.
bool Client::expired(const Request &request) const {
    if (request.limit <= Duration::zero()) return false;
    return clock_ - request.begun.value_or(std::max(request.submitted, last_answer_)) >= request.limit;
}

void Client::expire() {
    std::vector<const Request *> late;
    for_each([&](const Request &request) {
        if (expired(request)) late.push_back(&request);
    });
    for (const Request *request : late) {
        auto taken = withdraw(*request);
        if (taken == nullptr) continue;
        std::string words = "no answer within " + seconds_text(taken->limit);
        if (!last_trouble_.ok()) words += " (" + last_trouble_.text() + ")";
        begin_doubt(std::string(taken->name) + ": " + words, taken->limit);
        finish(std::move(taken), {ETIMEDOUT, std::move(words)});
    }
    doubt_.believe_if_due();
    if (doubt_.settled(clock_)) fail_doubted();
}

void Client::begin_doubt(std::string why, Duration waited) {
    if (doubt_) return;
    doubt_.begin(std::move(why), clock_ + config_.timing.grace, waited);
    for (const auto &channel : channels_)
        channel->doubt();
}

Status Client::doubtful() const {
    return {ETIMEDOUT, "the server does not answer (" + doubt_.why() + ")"};
}

void Client::fail_doubted() {
    std::vector<const Request *> waiting;
    for_each([&](const Request &request) {
        if (request.done) waiting.push_back(&request);  // a channel's NULL call goes on
    });
    for (const Request *request : waiting)
        if (auto taken = withdraw(*request); taken != nullptr) finish(std::move(taken), doubtful());
}

void Client::report_silence() {
    if (reported_ || outstanding_ == 0 || clock_ - last_answer_ < config_.timing.notice) return;
    bool waiting = false;
    for_each([&](const Request &request) { waiting = waiting || clock_ - request.submitted >= config_.timing.notice; });
    if (!waiting) return;
    reported_ = true;
    trace_.write(TraceLevel::failure, TraceComponent::rpc, [this] {
        return record_text({RecordKind::silence, {}, 0, config_.server});
    });
}

}  // namespace nfstdm::rpc
