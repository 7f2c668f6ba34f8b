// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/transport/socket.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "nfstdm/base/random.h"

namespace nfstdm::rpc {

namespace {

// Below these stand well-known services that a client must not keep from starting.
constexpr uint16_t kFirstReserved = 665;
constexpr uint16_t kLastReserved = 1023;
constexpr unsigned kReservedPorts = kLastReserved - kFirstReserved + 1;

void set_option(int descriptor, int level, int option) {
    const int on = 1;
    // What these options do is welcome, not needed; a system that lacks one still works.
    static_cast<void>(setsockopt(descriptor, level, option, &on, sizeof on));
}

Result<Descriptor> new_socket(int family) {
    Descriptor socket(::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP));
    if (!socket) return system_failure("socket", errno);
    set_option(socket.get(), IPPROTO_TCP, TCP_NODELAY);
    set_option(socket.get(), SOL_SOCKET, SO_KEEPALIVE);
    return socket;
}

// The address to bind: the one asked for, of the server's family, or any.
Result<Address> local_address(int family, const std::string &local) {
    Address address;
    address.storage.ss_family = static_cast<sa_family_t>(family);
    address.length = family == AF_INET6 ? sizeof(sockaddr_in6) : sizeof(sockaddr_in);
    if (local.empty()) return address;
    const auto candidates = resolve(local, 0);
    if (!candidates.ok()) return candidates.status().in("local address");
    const auto found = std::find_if(candidates.value().begin(), candidates.value().end(),
                                    [family](const Address &each) { return each.family() == family; });
    if (found == candidates.value().end())
        return Status{EADDRNOTAVAIL, "local address " + local + " is not of the server's address family"};
    return *found;
}

// 0 or an errno.
int bind_and_connect(int descriptor, const Address *from, const Address &to) {
    if (from != nullptr && bind(descriptor, from->get(), from->length) != 0) return errno;
    if (connect(descriptor, to.get(), to.length) == 0 || errno == EINPROGRESS) return 0;
    return errno;
}

// Tries reserved ports from a random one on, so that runs that follow each other do not fight over the same. EACCES
// when the process may bind none, EADDRNOTAVAIL when none is free.
Result<Descriptor> connect_reserved(const Address &to, Address from) {
    const auto start = static_cast<unsigned>(random_number() % kReservedPorts);
    for (unsigned i = 0; i < kReservedPorts; ++i) {
        set_port(from, static_cast<uint16_t>(kFirstReserved + (start + i) % kReservedPorts));
        auto socket = new_socket(to.family());
        if (!socket.ok()) return socket;
        const int error = bind_and_connect(socket.value().get(), &from, to);
        if (error == 0) return socket;
        // In use, or still remembered from an earlier connection to the same server.
        if (error != EADDRINUSE && error != EADDRNOTAVAIL) return system_failure("connect", error);
    }
    return system_failure("reserved port", EADDRNOTAVAIL);
}

bool may_do_without(uint32_t error) {
    return error == EACCES || error == EPERM || error == EADDRNOTAVAIL;
}

}  // namespace

Result<Descriptor> start_connect(const Address &to, const std::string &local, SourcePort source) {
    const auto from = local_address(to.family(), local);
    if (!from.ok()) return from.status();
    if (source == SourcePort::reserved) {
        auto reserved = connect_reserved(to, from.value());
        if (reserved.ok() || !may_do_without(reserved.status().number())) return reserved;
    }
    auto socket = new_socket(to.family());
    if (!socket.ok()) return socket;
    const int error = bind_and_connect(socket.value().get(), local.empty() ? nullptr : &from.value(), to);
    if (error != 0) return system_failure("connect", error);
    return socket;
}

Status connect_result(int descriptor) {
    int error = 0;
    socklen_t length = sizeof error;
    if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) != 0) error = errno;
    return error == 0 ? Status{} : system_failure("connect", error);
}

std::size_t unacknowledged(int descriptor) {
    int bytes = 0;
    if (ioctl(descriptor, SIOCOUTQ, &bytes) != 0 || bytes < 0) return 0;
    return static_cast<std::size_t>(bytes);
}

void limit_unsent(int descriptor, std::size_t bytes) {
    const int limit = static_cast<int>(std::min<std::size_t>(bytes, std::numeric_limits<int>::max()));
    // A system without it holds more, which costs time where a path turns out to be slow, and nothing else.
    static_cast<void>(setsockopt(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, &limit, sizeof limit));
}

void close_now(Descriptor &socket) {
    const linger reset{1, 0};
    if (socket) static_cast<void>(setsockopt(socket.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof reset));
    socket.close();
}

void close_behind(Descriptor &socket) {
    const int not_at_all = -1;  // to linger on when the peer has acknowledged the end
    if (socket) static_cast<void>(setsockopt(socket.get(), IPPROTO_TCP, TCP_LINGER2, &not_at_all, sizeof not_at_all));
    socket.close();
}

}  // namespace nfstdm::rpc
