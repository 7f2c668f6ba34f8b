// SPDX-License-Identifier: Apache-2.0
// The network layer: the host's own addresses, the look-up of address texts, and the prefixes of the host's subnets.
#pragma once

#include <netdb.h>
#include <sys/socket.h>

#include <optional>
#include <string>
#include <vector>

// An IPv4 or IPv6 address with its text and its tests.
class NetworkAddress {
  public:
    // Nothing for another family.
    static std::optional<NetworkAddress> from(const sockaddr *address);

    int family() const { return storage_.ss_family; }
    std::string text() const;  // without a scope
    bool is_loopback() const;
    bool is_link_local_v6() const;  // fe80::/10 (RFC 4291, section 2.5.6)
    bool operator==(const NetworkAddress &other) const { return bytes() == other.bytes(); }

    // As many leading one bits as the address has, for a netmask.
    int leading_ones() const;

  private:
    // The address alone, in network order.
    std::string bytes() const;

    sockaddr_storage storage_ = {};
};

struct InterfaceAddress {
    NetworkAddress address;
    std::optional<NetworkAddress> netmask;
};

// What the network layer asks of the system. The program has one, the tests put others in its place.
class NetworkSource {
  public:
    virtual ~NetworkSource() = default;

    // Makes the layer ready. False, with the reason in words, when that fails.
    virtual bool initialize(std::string &reason);

    // The addresses of the host's interfaces, in the system's order. Other families are left out. False when the system
    // gives no list.
    virtual bool local_addresses(std::vector<InterfaceAddress> &addresses);

    // The addresses that a text stands for, as getaddrinfo finds them; hints may be null. False when there are none.
    virtual bool look_up(const std::string &text, const addrinfo *hints, std::vector<NetworkAddress> &found);

    // The length of the subnet prefix, in bits, of the interface that carries an address. Returns 0, or the number of
    // an error: EADDRNOTAVAIL when no interface carries it.
    int subnet_prefix(const NetworkAddress &address, int &length);
};

NetworkSource &network_source();

// Another source for the length of a scope; it must outlive that.
class ScopedNetworkSource {
  public:
    explicit ScopedNetworkSource(NetworkSource &source);
    ~ScopedNetworkSource();
    ScopedNetworkSource(const ScopedNetworkSource &) = delete;
    ScopedNetworkSource &operator=(const ScopedNetworkSource &) = delete;

  private:
    NetworkSource *before_;
};
