// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/transport/tls.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <span>
#include <utility>

#include "nfstdm/base/random.h"
#include "nfstdm/tls/loader.h"

namespace nfstdm::rpc {

namespace {

const char *or_null(const std::string &text) {
    return text.empty() ? nullptr : text.c_str();
}

Status status_of(const nfstdm_tls_failure &failure) {
    return {static_cast<uint32_t>(failure.number), std::string("TLS: ") + failure.text};
}

iovec area(std::span<const std::byte> bytes) {
    return {const_cast<std::byte *>(bytes.data()), bytes.size()};
}

uint32_t any_xid() {
    return static_cast<uint32_t>(random_number());
}

}  // namespace

Status TlsContext::open() {
    if (context_ != nullptr) return {};
    const auto functions = tls::load(settings_.module);
    if (!functions.ok()) return functions.status();
    nfstdm_tls_failure failure{};
    const nfstdm_tls_settings settings{NFSTDM_TLS_CLIENT, or_null(settings_.ca), or_null(settings_.certificate),
                                       or_null(settings_.key)};
    context_ = {functions.value()->new_context(&settings, &failure), functions.value()->free_context};
    if (context_ == nullptr) return status_of(failure);
    functions_ = functions.value();
    return {};
}

Result<TlsContext::Session> TlsContext::new_session(int socket, const std::string &peer,
                                                    const std::vector<std::string> &names) {
    if (Status status = open(); !status.ok()) return status;
    std::vector<const char *> list;
    list.reserve(names.size() + 1);
    for (const std::string &name : names)
        list.push_back(name.c_str());
    list.push_back(nullptr);
    nfstdm_tls_failure failure{};
    Session session(functions_->new_session(context_.get(), socket, peer.c_str(), list.data(), &failure),
                    functions_->free_session);
    if (session == nullptr) return status_of(failure);
    return session;
}

TlsTransport::TlsTransport(Descriptor connected, std::shared_ptr<TlsContext> context, TlsPeer peer)
    : tcp_(std::move(connected)),
      context_(std::move(context)),
      peer_(std::move(peer)),
      question_(peer_.program, peer_.version, any_xid()),
      phase_(*peer_.shuns_question ? Phase::plain : Phase::asking) {}

Result<short> TlsTransport::handshake() {
    switch (phase_) {
        case Phase::asking:
            return ask();
        case Phase::listening:
            return listen();
        case Phase::securing:
            return secure();
        case Phase::secured:
        case Phase::plain:
            break;
    }
    return short{0};
}

Result<short> TlsTransport::ask() {
    const std::array<iovec, 1> rest{area(question_.call().subspan(asked_))};
    const auto sent = tcp_.send(rest);
    if (!sent.ok()) return sent.status().in("asking for TLS");
    asked_ += sent.value();
    if (asked_ < question_.call().size()) return short{POLLOUT};
    phase_ = Phase::listening;
    return listen();
}

Result<short> TlsTransport::listen() {
    while (const std::size_t missing = question_.missing()) {
        std::array<std::byte, 512> buffer{};
        const auto room = std::span{buffer}.first(std::min(missing, buffer.size()));
        const std::array<iovec, 1> place{area(room)};
        const auto got = tcp_.receive(place);
        if (!got.ok()) return unanswered(got.status());
        if (got.value() == 0) return short{POLLIN};
        heard_ = true;
        if (Status status = question_.take(room.first(got.value())); !status.ok()) return status;
    }
    return decide();
}

// A server that closes the connection instead of answering does not know the question: it is not asked again, where it
// may be used in plain.
Status TlsTransport::unanswered(const Status &why) {
    *peer_.shuns_question = !peer_.required && !heard_;
    return why.in("asking for TLS");
}

Result<short> TlsTransport::decide() {
    const auto offered = question_.offered();
    if (!offered.ok()) return offered.status();
    if (!offered.value() && peer_.required)
        return Status{EPROTONOSUPPORT, "the server does not offer TLS, which transport_security asks for"};
    if (!offered.value()) {
        phase_ = Phase::plain;
        return short{0};
    }
    auto session = context_->new_session(tcp_.descriptor(), peer_.where, peer_.names);
    if (!session.ok()) return session.status();
    session_ = std::move(session.value());
    phase_ = Phase::securing;
    return secure();
}

Result<short> TlsTransport::secure() {
    nfstdm_tls_failure failure{};
    const int waits = context_->functions()->handshake(session_.get(), &failure);
    if (waits < 0) return status_of(failure);
    if (waits == 0) phase_ = Phase::secured;
    return static_cast<short>(waits);
}

Result<std::size_t> TlsTransport::receive(std::span<const iovec> places) {
    if (phase_ == Phase::plain) return tcp_.receive(places);
    nfstdm_tls_failure failure{};
    const ssize_t got = context_->functions()->receive(session_.get(), places.data(), places.size(), &failure);
    if (got < 0) return status_of(failure);
    return static_cast<std::size_t>(got);
}

Result<std::size_t> TlsTransport::send(std::span<const iovec> pieces) {
    if (phase_ == Phase::plain) return tcp_.send(pieces);
    nfstdm_tls_failure failure{};
    const ssize_t sent = context_->functions()->send(session_.get(), pieces.data(), pieces.size(), &failure);
    if (sent < 0) return status_of(failure);
    return static_cast<std::size_t>(sent);
}

// In bytes of TLS, which are a few more than those that were given.
std::size_t TlsTransport::unacknowledged() const {
    const std::size_t held = session_ == nullptr ? 0 : context_->functions()->unsent(session_.get());
    return held + tcp_.unacknowledged();
}

// The session knows the descriptor, so it goes first.
void TlsTransport::close_behind() {
    session_.reset();
    tcp_.close_behind();
}

bool TlsTransport::holds_received() const {
    return session_ != nullptr && context_->functions()->holds_received(session_.get()) != 0;
}

bool TlsTransport::holds_unsent() const {
    return session_ != nullptr && context_->functions()->unsent(session_.get()) > 0;
}

std::string TlsTransport::remark() const {
    if (phase_ == Phase::plain)
        return std::string("in plain: the server ") +
               (*peer_.shuns_question ? "closes connections that ask for" : "does not offer") + " TLS for program " +
               std::to_string(peer_.program);
    std::array<char, 256> text{};
    if (session_ != nullptr) context_->functions()->describe(session_.get(), text.data(), text.size());
    return text.data();
}

}  // namespace nfstdm::rpc
