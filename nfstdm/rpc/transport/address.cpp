// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/transport/address.h"

#include <netdb.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>

namespace nfstdm::rpc {

namespace {

bool parse_port(std::string_view text, uint16_t &port) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() && port != 0;
}

Status bad(std::string_view text, const char *why) {
    return {EINVAL, "\"" + std::string(text) + "\" " + why};
}

}  // namespace

Result<HostPort> parse_host_port(std::string_view text) {
    HostPort result;
    std::string_view port;
    bool has_port = false;
    if (text.starts_with('[')) {
        const std::size_t end = text.find(']');
        if (end == std::string_view::npos) return bad(text, "lacks the closing bracket of its address");
        result.host = text.substr(1, end - 1);
        const std::string_view rest = text.substr(end + 1);
        has_port = !rest.empty();
        if (has_port && rest.front() != ':') return bad(text, "has something other than a port behind its address");
        if (has_port) port = rest.substr(1);
    } else if (std::count(text.begin(), text.end(), ':') == 1) {
        const std::size_t colon = text.find(':');
        result.host = text.substr(0, colon);
        port = text.substr(colon + 1);
        has_port = true;
    } else {
        result.host = text;  // a name, an IPv4 address, or an IPv6 address without brackets
    }
    if (result.host.empty()) return bad(text, "names no host");
    if (has_port && !parse_port(port, result.port)) return bad(text, "does not end in a port number (1 to 65535)");
    return result;
}

Result<std::vector<Address>> resolve(const std::string &host, uint16_t port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo *list = nullptr;
    const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &list);
    if (error != 0) {
        const char *words = error == EAI_SYSTEM ? std::strerror(errno) : gai_strerror(error);
        return Status{EHOSTUNREACH, "the name " + host + " has no address: " + words};
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
    std::vector<Address> addresses;
    for (const addrinfo *entry = list; entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_addrlen > sizeof(sockaddr_storage)) continue;
        Address &address = addresses.emplace_back();
        std::memcpy(&address.storage, entry->ai_addr, entry->ai_addrlen);
        address.length = entry->ai_addrlen;
    }
    if (addresses.empty()) return Status{EHOSTUNREACH, "the name " + host + " has no usable address"};
    return addresses;
}

void set_port(Address &address, uint16_t port) {
    if (address.family() == AF_INET6)
        reinterpret_cast<sockaddr_in6 *>(&address.storage)->sin6_port = htons(port);
    else
        reinterpret_cast<sockaddr_in *>(&address.storage)->sin_port = htons(port);
}

bool is_same_host(const Address &one, const Address &other) {
    Address first = one, second = other;
    set_port(first, 0);
    set_port(second, 0);
    return first.length == second.length && std::memcmp(&first.storage, &second.storage, first.length) == 0;
}

std::string to_text(const Address &address) {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    if (getnameinfo(address.get(), address.length, host.data(), host.size(), port.data(), port.size(),
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return "unknown address";
    const std::string name = host.data();
    return (address.family() == AF_INET6 ? "[" + name + "]" : name) + ":" + port.data();
}

}  // namespace nfstdm::rpc
