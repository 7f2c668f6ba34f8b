// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/rpc/scripted_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <stdexcept>
#include <utility>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/rpc/transport/address.h"

namespace nfstdm::test {

bool run(EventLoop &loop, const std::function<bool()> &done) {
    bool given_up = false;
    const auto timer = loop.after(std::chrono::seconds(60), [&given_up] { given_up = true; });
    loop.run_until([&] { return given_up || done(); });
    loop.cancel(timer);
    return !given_up;
}

void run_for(EventLoop &loop, std::chrono::milliseconds duration) {
    bool over = false;
    loop.after(duration, [&over] { over = true; });
    loop.run_until([&over] { return over; });
}

Bytes bytes_of(std::string_view text) {
    const auto bytes = std::as_bytes(std::span{text});
    return {bytes.begin(), bytes.end()};
}

Bytes record(std::span<const std::byte> payload) {
    xdr::Writer mark;
    mark.put_u32(rpc::kLastFragment | static_cast<uint32_t>(payload.size()));
    return joined({mark.bytes(), payload});
}

Bytes joined(std::initializer_list<std::span<const std::byte>> parts) {
    Bytes all;
    for (const auto &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

xdr::Writer begin_reply(uint32_t xid, std::size_t verifier_size) {
    xdr::Writer writer;
    writer.put_u32(xid);
    writer.put_u32(rpc::kReply);
    writer.put_u32(rpc::kMessageAccepted);
    writer.put_u32(rpc::kAuthNone);
    writer.put_opaque(Bytes(verifier_size));
    writer.put_u32(0);
    return writer;
}

ScriptedServer::ScriptedServer(EventLoop &loop, const std::string &host, uint16_t port) : loop_(loop) {
    auto addresses = rpc::resolve(host, port);
    if (!addresses.ok()) throw std::runtime_error(addresses.status().text());
    rpc::Address address = addresses.value().front();
    listener_ = Descriptor(::socket(address.family(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    auto *place = reinterpret_cast<sockaddr *>(&address.storage);
    if (!listener_ || bind(listener_.get(), place, address.length) != 0 || listen(listener_.get(), 64) != 0 ||
        getsockname(listener_.get(), place, &address.length) != 0)
        throw std::runtime_error("no listening socket");
    const std::string text = rpc::to_text(address);
    port_ = static_cast<uint16_t>(std::stoul(text.substr(text.rfind(':') + 1)));
    loop_.watch(listener_.get(), POLLIN, [this](short) { accept_one(); });
}

ScriptedServer::~ScriptedServer() {
    stop();
}

void ScriptedServer::stop() {
    while (!peers_.empty())
        cut(peers_.begin()->first);
    if (listener_) loop_.forget(listener_.get());
    listener_.close();
}

void ScriptedServer::accept_one() {
    Descriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) return;
    const int connection = ++accepted_;
    if (turn_away) return;
    // Else a second answer in a row waits for the first one to be acknowledged.
    const int on = 1;
    static_cast<void>(setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on));
    peers_[connection].socket = std::move(socket);
    watch(connection);
}

void ScriptedServer::set_reading(bool reading) {
    reading_ = reading;
    for (const auto &[connection, peer] : peers_)
        watch(connection);
}

void ScriptedServer::watch(int connection) {
    const Peer &peer = peers_.at(connection);
    const int events = (reading_ ? POLLIN : 0) | (peer.output.empty() ? 0 : POLLOUT);
    loop_.watch(peer.socket.get(), static_cast<short>(events),
                [this, connection](short happened) { ready(connection, happened); });
}

void ScriptedServer::ready(int connection, short events) {
    Peer &peer = peers_.at(connection);
    if ((events & POLLOUT) != 0) flush(connection);
    if ((events & ~POLLOUT) == 0) return;
    std::array<std::byte, 65536> buffer;
    const ssize_t got = recv(peer.socket.get(), buffer.data(), buffer.size(), 0);
    if (got < 0 && errno == EAGAIN) return;
    if (got <= 0) return cut(connection);
    peer.input.insert(peer.input.end(), buffer.begin(), buffer.begin() + got);
    take_records(connection);
}

void ScriptedServer::take_records(int connection) {
    while (peers_.contains(connection)) {
        Peer &peer = peers_.at(connection);
        xdr::Reader reader(peer.input);
        uint32_t mark = 0;
        if (!reader.get_u32(mark)) return;
        const std::size_t size = mark & ~rpc::kLastFragment;
        if (reader.left() < size) return;
        const Bytes whole(peer.input.begin() + 4, peer.input.begin() + 4 + static_cast<std::ptrdiff_t>(size));
        peer.input.erase(peer.input.begin(), peer.input.begin() + 4 + static_cast<std::ptrdiff_t>(size));
        handle(connection, whole);
    }
}

void ScriptedServer::handle(int connection, std::span<const std::byte> whole) {
    xdr::Reader reader(whole);
    ReceivedCall call;
    call.connection = connection;
    uint32_t kind = 0, rpc_version = 0, verifier_flavour = 0;
    std::span<const std::byte> credential, verifier;
    if (!reader.get_u32(call.xid) || !reader.get_u32(kind) || !reader.get_u32(rpc_version) ||
        !reader.get_u32(call.program) || !reader.get_u32(call.version) || !reader.get_u32(call.procedure) ||
        !reader.get_u32(call.flavour) || !reader.get_opaque(credential, rpc::kAuthBodyMaximum) ||
        !reader.get_u32(verifier_flavour) || !reader.get_opaque(verifier, rpc::kAuthBodyMaximum) ||
        kind != rpc::kCall || rpc_version != rpc::kRpcVersion)
        throw std::runtime_error("what the client sent is no call");
    call.credential.assign(credential.begin(), credential.end());
    const auto arguments = whole.last(reader.left());
    call.arguments.assign(arguments.begin(), arguments.end());
    if (call.procedure == 0) {
        ++null_calls_;
        if (silent) return;
        if (on_null) return on_null(call);
        return reply(connection, begin_reply(call.xid));
    }
    calls_.push_back(call);
    if (!silent && on_call) on_call(call);
}

void ScriptedServer::send(int connection, std::span<const std::byte> bytes) {
    const auto found = peers_.find(connection);
    if (found == peers_.end()) return;
    found->second.output.insert(found->second.output.end(), bytes.begin(), bytes.end());
    flush(connection);
}

void ScriptedServer::flush(int connection) {
    Peer &peer = peers_.at(connection);
    const ssize_t sent = ::send(peer.socket.get(), peer.output.data(), peer.output.size(), MSG_NOSIGNAL);
    if (sent > 0) peer.output.erase(peer.output.begin(), peer.output.begin() + sent);
    watch(connection);
}

void ScriptedServer::cut(int connection) {
    const auto found = peers_.find(connection);
    if (found == peers_.end()) return;
    loop_.forget(found->second.socket.get());
    peers_.erase(found);
}

}  // namespace nfstdm::test
