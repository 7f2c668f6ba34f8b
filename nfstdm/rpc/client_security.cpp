// SPDX-License-Identifier: Apache-2.0
// How a client's authenticators come to terms with the server before their requests are sent, and take leave of it.
#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "nfstdm/rpc/client.h"

namespace nfstdm::rpc {

void Client::open_authenticators() {
    const auto waits = [this](const auto &request) {
        return !opening_.contains(request->authenticator.get()) &&
               request->authenticator->readiness() == Authenticator::Readiness::unmade;
    };
    for (;;) {
        const auto first = std::find_if(to_send_.begin(), to_send_.end(), waits);
        if (first == to_send_.end()) return;
        begin_opening(**first);
    }
}

void Client::begin_opening(const Request &first) {
    const auto authenticator = first.authenticator;
    opening_.insert(authenticator.get());
    open_further(authenticator, authenticator->next_opening(std::nullopt), first);
}

// The next call of an authenticator, which may take as long as the one that waits for it.
void Client::open_further(const std::shared_ptr<Authenticator> &authenticator, Result<std::optional<Opening>> next,
                          const Request &like) {
    if (!next.ok()) return opening_failed(authenticator.get(), next.status().in("server " + config_.server));
    if (!next.value()) {
        opening_.erase(authenticator.get());
        opened_.insert(authenticator);
        return pump();
    }
    auto request = std::make_unique<Request>();
    request->name = "security context";
    request->authenticator = std::move(next.value()->authenticator);
    request->arguments = std::move(next.value()->arguments);
    request->results_maximum = next.value()->results_maximum;
    request->limit = like.limit;
    request->needs_contact = like.needs_contact;
    request->owner = this;
    request->done = [this, authenticator](const std::unique_ptr<Request> &answered) {
        if (!answered->status.ok())
            return opening_failed(authenticator.get(), authenticator->advised(answered->status));
        open_further(authenticator, authenticator->next_opening(answered->results()), *answered);
    };
    submit(std::move(request));
}

void Client::opening_failed(const Authenticator *authenticator, const Status &why) {
    opening_.erase(authenticator);
    for (auto &request : to_send_)
        if (request->authenticator.get() == authenticator) conclude(std::move(request), why);
    std::erase(to_send_, nullptr);
}

void Client::take_leave() {
    for (const auto &authenticator : std::exchange(opened_, {})) {
        auto parting = authenticator->parting();
        if (parting == nullptr || doubt_ || usable_channels() == 0) continue;
        auto request = std::make_unique<Request>();
        request->name = "security context";
        request->authenticator = std::move(parting);
        request->one_way = true;
        request->owner = this;
        request->done = [](const std::unique_ptr<Request> &) {};
        submit(std::move(request));
    }
    drop(this);  // on connections that have nothing else to send it has left at once
}

}  // namespace nfstdm::rpc
