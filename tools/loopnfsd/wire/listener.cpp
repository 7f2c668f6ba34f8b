// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/listener.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>

#include "tools/loopnfsd/base/text.h"

namespace loopnfsd {

namespace {

constexpr int kBacklog = 64;

struct FreeAddresses {
    void operator()(addrinfo *addresses) const { freeaddrinfo(addresses); }
};

SocketAddress to_text(const sockaddr_storage &address, socklen_t size) {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> service{};
    if (getnameinfo(reinterpret_cast<const sockaddr *>(&address), size, host.data(), host.size(), service.data(),
                    service.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return {};
    return {host.data(), static_cast<uint16_t>(parse_number(service.data()).value_or(0))};
}

}  // namespace

std::string SocketAddress::text() const {
    const bool brackets = host.find(':') != std::string::npos;
    return (brackets ? '[' + host + ']' : host) + ':' + std::to_string(port);
}

Listener::~Listener() {
    if (socket_) loop_.forget(socket_.get());
}

std::string Listener::open(const SocketAddress &address) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
    addrinfo *found = nullptr;
    const std::string service = std::to_string(address.port);
    if (const int error = getaddrinfo(address.host.c_str(), service.c_str(), &hints, &found); error != 0)
        return "\"" + address.host + "\" is no address: " + gai_strerror(error);
    const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
    const auto failed = [&] {
        return "cannot listen on " + address.text() + ": " + std::generic_category().message(errno);
    };
    socket_ = UniqueFd(socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    if (!socket_ || setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        bind(socket_.get(), found->ai_addr, found->ai_addrlen) != 0 || listen(socket_.get(), kBacklog) != 0)
        return failed();
    sockaddr_storage bound{};
    socklen_t size = sizeof bound;
    if (getsockname(socket_.get(), reinterpret_cast<sockaddr *>(&bound), &size) != 0) return failed();
    address_ = to_text(bound, size);
    loop_.watch(socket_.get(), POLLIN, [this](short) { accept(); });
    return {};
}

void Listener::accept() {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    UniqueFd socket(accept4(socket_.get(), reinterpret_cast<sockaddr *>(&peer), &size, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) return;  // gone again already, or no descriptors left: the next turn tries again
    const int on = 1;
    setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    accepted_(std::move(socket), to_text(peer, size).host);
}

}  // namespace loopnfsd
