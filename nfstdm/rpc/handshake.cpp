// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/handshake.h"

#include <cerrno>
#include <utility>

namespace nfstdm::rpc {

void Handshake::begin(std::unique_ptr<Transport> transport, Duration limit, Done done) {
    cancel();
    transport_ = std::move(transport);
    done_ = std::move(done);
    timer_.after(limit, [this] { finish(Status{ETIMEDOUT, "no answer while the connection was to be secured"}); });
    step();
}

void Handshake::cancel() {
    timer_.cancel();
    if (std::exchange(watched_, 0) != 0) loop_.forget(transport_->descriptor());
    transport_.reset();
    done_ = nullptr;
}

void Handshake::step() {
    const auto waits = transport_->handshake();
    if (!waits.ok()) return finish(waits.status());
    if (waits.value() == 0) {
        if (std::exchange(watched_, 0) != 0) loop_.forget(transport_->descriptor());
        return finish(std::move(transport_));
    }
    if (waits.value() == watched_) return;
    watched_ = waits.value();
    loop_.watch(transport_->descriptor(), watched_, [this](short) { step(); });
}

void Handshake::finish(Result<std::unique_ptr<Transport>> result) {
    const auto done = std::move(done_);
    cancel();
    done(std::move(result));
}

}  // namespace nfstdm::rpc
