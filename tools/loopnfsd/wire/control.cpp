// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/control.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <optional>
#include <system_error>

namespace loopnfsd {

namespace {

constexpr std::size_t kLineMaximum = 4096;
constexpr mode_t kOwnerOnly = 0177;  // umask

std::string reason() {
    return std::generic_category().message(errno);
}

std::optional<sockaddr_un> address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return std::nullopt;
    path.copy(address.sun_path, path.size());
    return address;
}

bool connect_to(int descriptor, const sockaddr_un &address) {
    return connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

// A socket nobody listens on any more.
bool is_left_behind(const std::string &path, const sockaddr_un &address) {
    struct stat status {};
    if (lstat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) return false;
    const UniqueFd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return probe && !connect_to(probe.get(), address) && errno == ECONNREFUSED;
}

}  // namespace

Control::~Control() {
    while (!clients_.empty())
        close(clients_.begin()->first);
    if (!socket_) return;
    loop_.forget(socket_.get());
    unlink(path_.c_str());
}

std::string Control::open(const std::string &path) {
    const auto address = address_of(path);
    if (!address) return "the name of the control socket is too long: " + path;
    if (is_left_behind(path, *address)) unlink(path.c_str());
    UniqueFd made(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const mode_t before = umask(kOwnerOnly);
    const bool bound = made && bind(made.get(), reinterpret_cast<const sockaddr *>(&*address), sizeof *address) == 0;
    const int error = errno;
    umask(before);
    errno = error;
    if (!bound || listen(made.get(), SOMAXCONN) != 0) return "cannot listen on " + path + ": " + reason();
    socket_ = std::move(made);
    path_ = path;
    loop_.watch(socket_.get(), POLLIN, [this](short) { accept(); });
    return {};
}

void Control::accept() {
    UniqueFd socket(accept4(socket_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!socket) return;
    const int descriptor = socket.get();
    clients_[descriptor] = Client{std::move(socket), {}};
    loop_.watch(descriptor, POLLIN, [this, descriptor](short) { receive(descriptor); });
}

void Control::receive(int descriptor) {
    Client &client = clients_.at(descriptor);
    std::array<char, kLineMaximum> bytes{};
    const ssize_t got = recv(descriptor, bytes.data(), bytes.size(), 0);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (got <= 0) return close(descriptor);
    client.input.append(bytes.data(), static_cast<std::size_t>(got));
    if (!obey(client)) close(descriptor);
}

// False when the client is not worth keeping.
bool Control::obey(Client &client) {
    for (;;) {
        const auto end = client.input.find('\n');
        if (end == std::string::npos) return client.input.size() <= kLineMaximum;
        const std::string answer = command_(std::string_view(client.input).substr(0, end)) + '\n';
        client.input.erase(0, end + 1);
        if (send(client.socket.get(), answer.data(), answer.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(answer.size()))
            return false;
    }
}

void Control::close(int descriptor) {
    loop_.forget(descriptor);
    clients_.erase(descriptor);
}

bool send_command(const std::string &path, const std::string &command, std::string &answer) {
    const auto address = address_of(path);
    const UniqueFd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const std::string line = command + '\n';
    if (!address || !socket || !connect_to(socket.get(), *address) ||
        send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(line.size())) {
        answer = "cannot reach " + path + ": " + (address ? reason() : "the name is too long");
        return false;
    }
    answer.clear();
    std::array<char, kLineMaximum> bytes{};
    while (!answer.ends_with('\n')) {
        const ssize_t got = recv(socket.get(), bytes.data(), bytes.size(), 0);
        if (got <= 0) {
            answer = "no answer from " + path;
            return false;
        }
        answer.append(bytes.data(), static_cast<std::size_t>(got));
    }
    answer.pop_back();
    return true;
}

}  // namespace loopnfsd
