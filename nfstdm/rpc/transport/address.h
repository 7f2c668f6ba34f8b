// SPDX-License-Identifier: Apache-2.0
// Names and addresses of servers, as tslnfstab and the command line write them.
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/base/status.h"

namespace nfstdm::rpc {

// "host", "host:port", "address", "v6 address", "[v6 address]" or "[v6 address]:port".
struct HostPort {
    std::string host;
    uint16_t port = 0;  // 0 = none given
};

// Fails with EINVAL, saying what is wrong with the text.
Result<HostPort> parse_host_port(std::string_view text);

struct Address {
    sockaddr_storage storage{};
    socklen_t length = 0;

    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&storage); }
    int family() const { return storage.ss_family; }
};

// The addresses of a host, IPv6 and IPv4 in the system's order of preference. Asks the system's resolver, which may
// block for as long as that waits for its name servers; an address written in digits never does.
Result<std::vector<Address>> resolve(const std::string &host, uint16_t port);

// Of an IPv4 or IPv6 address.
void set_port(Address &address, uint16_t port);

// Whether two addresses differ in their port at most.
bool is_same_host(const Address &one, const Address &other);

// "192.0.2.1:2049" or "[2001:db8::1]:2049".
std::string to_text(const Address &address);

}  // namespace nfstdm::rpc
