// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/transport/tcp.h"

#include <sys/socket.h>

#include <cerrno>
#include <string>

#include "nfstdm/rpc/transport/socket.h"

namespace nfstdm::rpc {

namespace {

msghdr message_of(std::span<const iovec> areas) {
    msghdr header{};
    // The calls only read the list, although it is not const there.
    header.msg_iov = const_cast<iovec *>(areas.data());
    header.msg_iovlen = areas.size();
    return header;
}

}  // namespace

TcpTransport::~TcpTransport() {
    close_now(socket_);
}

void TcpTransport::close_behind() {
    rpc::close_behind(socket_);
}

Result<std::size_t> TcpTransport::receive(std::span<const iovec> places) {
    msghdr header = message_of(places);
    const ssize_t got = recvmsg(socket_.get(), &header, MSG_DONTWAIT);
    if (got > 0) return static_cast<std::size_t>(got);
    if (got == 0) return Status{ECONNRESET, "the server closed the connection"};
    if (errno == EAGAIN || errno == EINTR) return std::size_t{0};
    return system_failure("receive", errno);
}

Result<std::size_t> TcpTransport::send(std::span<const iovec> pieces) {
    const msghdr message = message_of(pieces);
    ssize_t got = -1;
    do
        got = sendmsg(socket_.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    while (got < 0 && errno == EINTR);
    if (got >= 0) return static_cast<std::size_t>(got);
    if (errno == EAGAIN) return std::size_t{0};
    return system_failure("send", errno);
}

std::size_t TcpTransport::unacknowledged() const {
    return rpc::unacknowledged(socket_.get());
}

}  // namespace nfstdm::rpc
