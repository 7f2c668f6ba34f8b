// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/dialer.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace nfstdm::rpc {

void Dialer::dial(std::vector<Address> addresses, const std::string &local, SourcePort source, Done done) {
    cancel();
    addresses_ = std::move(addresses);
    local_ = local;
    source_ = source;
    done_ = std::move(done);
    next_ = 0;
    failure_ = {};
    begin_next();
}

void Dialer::cancel() {
    timer_.cancel();
    for (Attempt &attempt : attempts_) {
        loop_.forget(attempt.socket.get());
        close_now(attempt.socket);
    }
    attempts_.clear();
    done_ = nullptr;
}

// An address to which nothing can even be sent costs no time.
void Dialer::begin_next() {
    while (next_ < addresses_.size() && !begin(next_++)) {
    }
    if (attempts_.empty()) return timer_.after({}, [this] { finish({{}, {}, failure_, false}); });
    if (next_ < addresses_.size()) return timer_.after(timing_.stagger, [this] { begin_next(); });
    timer_.after(timing_.connect, [this] {
        finish({{}, {}, {ETIMEDOUT, "no answer to the connection request"}, true});
    });
}

bool Dialer::begin(std::size_t address) {
    auto started = start_connect(addresses_[address], local_, source_);
    if (!started.ok()) {
        failure_ = started.status();
        return false;
    }
    loop_.watch(started.value().get(), POLLOUT, [this, address](short) { ready(address); });
    attempts_.push_back({address, std::move(started.value())});
    return true;
}

void Dialer::ready(std::size_t address) {
    const auto attempt = std::find_if(attempts_.begin(), attempts_.end(),
                                      [address](const Attempt &each) { return each.address == address; });
    Descriptor socket = std::move(attempt->socket);
    attempts_.erase(attempt);
    loop_.forget(socket.get());
    if (Status status = connect_result(socket.get()); !status.ok()) {
        failure_ = std::move(status);
        // While others are under way and there is no next, the time they have goes on as it was.
        if (attempts_.empty() || next_ < addresses_.size()) begin_next();
        return;
    }
    finish({std::move(socket), addresses_[address], {}, false});
}

void Dialer::finish(Dialled result) {
    const auto done = std::move(done_);
    cancel();
    done(std::move(result));
}

}  // namespace nfstdm::rpc
