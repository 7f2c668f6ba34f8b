// SPDX-License-Identifier: Apache-2.0
#include "platform/addresses.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>

namespace {

NetworkSource system_source;
NetworkSource *current_source = &system_source;

in_addr v4_of(const sockaddr_storage &storage) {
    sockaddr_in address;
    std::memcpy(&address, &storage, sizeof address);
    return address.sin_addr;
}

in6_addr v6_of(const sockaddr_storage &storage) {
    sockaddr_in6 address;
    std::memcpy(&address, &storage, sizeof address);
    return address.sin6_addr;
}

}  // namespace

std::optional<NetworkAddress> NetworkAddress::from(const sockaddr *address) {
    if (address == nullptr || (address->sa_family != AF_INET && address->sa_family != AF_INET6)) return std::nullopt;
    NetworkAddress result;
    const std::size_t size = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    std::memcpy(&result.storage_, address, size);
    return result;
}

std::string NetworkAddress::bytes() const {
    if (family() == AF_INET) {
        const in_addr address = v4_of(storage_);
        return {reinterpret_cast<const char *>(&address), sizeof address};
    }
    const in6_addr address = v6_of(storage_);
    return {reinterpret_cast<const char *>(&address), sizeof address};
}

std::string NetworkAddress::text() const {
    char text[INET6_ADDRSTRLEN] = {};
    return inet_ntop(family(), bytes().data(), text, sizeof text) != nullptr ? text : "";
}

bool NetworkAddress::is_loopback() const {
    if (family() == AF_INET) return ntohl(v4_of(storage_).s_addr) >> 24 == IN_LOOPBACKNET;
    const in6_addr address = v6_of(storage_);
    return IN6_IS_ADDR_LOOPBACK(&address) != 0;
}

bool NetworkAddress::is_link_local_v6() const {
    if (family() != AF_INET6) return false;
    const in6_addr address = v6_of(storage_);
    return IN6_IS_ADDR_LINKLOCAL(&address) != 0;
}

int NetworkAddress::leading_ones() const {
    int ones = 0;
    for (const char c : bytes()) {
        const int here = std::countl_one(static_cast<uint8_t>(c));
        ones += here;
        if (here < 8) break;
    }
    return ones;
}

bool NetworkSource::initialize(std::string &) {
    return true;  // the system's network needs nothing
}

bool NetworkSource::local_addresses(std::vector<InterfaceAddress> &addresses) {
    ifaddrs *list = nullptr;
    if (getifaddrs(&list) != 0) return false;
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(list, freeifaddrs);
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        const auto address = NetworkAddress::from(entry->ifa_addr);
        if (address) addresses.push_back({*address, NetworkAddress::from(entry->ifa_netmask)});
    }
    return true;
}

bool NetworkSource::look_up(const std::string &text, const addrinfo *hints, std::vector<NetworkAddress> &found) {
    addrinfo *list = nullptr;
    if (getaddrinfo(text.c_str(), nullptr, hints, &list) != 0) return false;
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> owner(list, freeaddrinfo);
    for (const addrinfo *entry = list; entry != nullptr; entry = entry->ai_next) {
        if (const auto address = NetworkAddress::from(entry->ai_addr)) found.push_back(*address);
    }
    return !found.empty();
}

int NetworkSource::subnet_prefix(const NetworkAddress &address, int &length) {
    std::vector<InterfaceAddress> addresses;
    if (!local_addresses(addresses)) return errno != 0 ? errno : EIO;
    for (const auto &one : addresses) {
        if (one.address == address && one.netmask) {
            length = one.netmask->leading_ones();
            return 0;
        }
    }
    return EADDRNOTAVAIL;
}

NetworkSource &network_source() {
    return *current_source;
}

ScopedNetworkSource::ScopedNetworkSource(NetworkSource &source) : before_(current_source) {
    current_source = &source;
}

ScopedNetworkSource::~ScopedNetworkSource() {
    current_source = before_;
}
