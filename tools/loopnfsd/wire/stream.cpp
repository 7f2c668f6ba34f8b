// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/stream.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <string_view>

#include "nfstdm/tls/loader.h"

namespace loopnfsd {

std::string TlsService::open(const TlsFiles &files) {
    const auto functions = nfstdm::tls::load(nfstdm::tls::module_path());
    if (!functions.ok()) return functions.status().text();
    functions_ = functions.value();
    const char *ca = files.client_ca.empty() ? nullptr : files.client_ca.c_str();
    const nfstdm_tls_settings settings{NFSTDM_TLS_SERVER, ca, files.certificate.c_str(), files.key.c_str()};
    nfstdm_tls_failure failure{};
    context_ = {functions_->new_context(&settings, &failure), functions_->free_context};
    return context_ == nullptr ? failure.text : "";
}

TlsService::Session TlsService::new_session(int socket) {
    nfstdm_tls_failure failure{};
    return {functions_->new_session(context_.get(), socket, nullptr, nullptr, &failure), functions_->free_session};
}

void Stream::close() {
    session_.reset();
    socket_.close();
}

bool Stream::start_tls() {
    session_ = tls_.new_session(socket_.get());
    ready_ = false;
    return session_ != nullptr && shake_hands();
}

// False when the client is refused, or gone.
bool Stream::shake_hands() {
    nfstdm_tls_failure failure{};
    const int waits = tls_.functions().handshake(session_.get(), &failure);
    ready_ = waits == 0;
    waits_for_ = static_cast<short>(waits > 0 ? waits : 0);
    if (ready_) count();
    return waits >= 0;
}

void Stream::count() {
    std::array<char, 256> text{};
    tls_.functions().describe(session_.get(), text.data(), text.size());
    ++statistics_.tls_connections;
    if (std::string_view(text.data()).find("resumed") != std::string_view::npos) ++statistics_.tls_resumed;
}

ssize_t Stream::receive(std::span<std::byte> place) {
    const std::array<iovec, 1> places{iovec{place.data(), place.size()}};
    if (session_ != nullptr) {
        if (!ready_ && !shake_hands()) return -1;
        if (!ready_) return 0;
        nfstdm_tls_failure failure{};
        return tls_.functions().receive(session_.get(), places.data(), places.size(), &failure);
    }
    const ssize_t got = recv(socket_.get(), place.data(), place.size(), 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
    return got > 0 ? got : -1;
}

ssize_t Stream::send(std::span<const iovec> pieces) {
    if (session_ != nullptr) {
        if (!ready_ && !shake_hands()) return -1;
        if (!ready_) return 0;
        nfstdm_tls_failure failure{};
        const ssize_t sent = tls_.functions().send(session_.get(), pieces.data(), pieces.size(), &failure);
        waits_for_ = tls_.functions().unsent(session_.get()) > 0 ? POLLOUT : 0;
        return sent;
    }
    msghdr message{};
    message.msg_iov = const_cast<iovec *>(pieces.data());
    message.msg_iovlen = pieces.size();
    const ssize_t sent = sendmsg(socket_.get(), &message, MSG_NOSIGNAL);
    if (sent < 0 && (errno == EAGAIN || errno == EINTR)) return 0;
    return sent;
}

bool Stream::holds_received() const {
    return ready_ && session_ != nullptr && tls_.functions().holds_received(session_.get()) != 0;
}

}  // namespace loopnfsd
