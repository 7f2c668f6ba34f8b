// SPDX-License-Identifier: Apache-2.0
// The address commands, and networkdiscovery, which discovers nothing. What fails here is printed, never traced.
#include "platform/addresses.h"

#include <string>
#include <vector>

#include "tslwnfs/netdisc/check_ip_type.h"
#include "tslwnfs/netdisc/netdisc.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"

namespace {

bool initialize(NetworkSource &network) {
    std::string reason;
    if (network.initialize(reason)) return true;
    print("Initialization failed: %s", reason.c_str());
    return false;
}

// Hints for a text that can only be an address; nothing is asked of a name server.
addrinfo numeric_hints(int family) {
    addrinfo hints = {};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_family = family;
    hints.ai_socktype = SOCK_STREAM;
    return hints;
}

addrinfo subnet_hints() {
    addrinfo hints = {};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    return hints;
}

}  // namespace

uint32_t check_ip_type(NetworkSource &network, int family, const char *address) {
    const addrinfo hints = numeric_hints(family);
    const bool is_known = family == AF_INET || family == AF_INET6;
    std::vector<NetworkAddress> found;
    if (!network.look_up(address, is_known ? &hints : nullptr, found)) {
        print("Error in lookupAddress for the ip address %s\n", address);
        return kNotFound;
    }
    if (found.front().is_loopback() || found.front().is_link_local_v6()) return kUnusable;
    return std::string_view(address).find("169.254") == std::string_view::npos ? kUsable : kUnusable;
}

uint32_t enum_local_ips(int32_t with_subnets) {
    NetworkSource &network = network_source();
    if (!initialize(network)) return 1;
    std::vector<InterfaceAddress> addresses;
    if (!network.local_addresses(addresses)) {
        print("Failed to get local ips\n");
        return 1;
    }
    for (const auto &entry : addresses) {
        const int family = entry.address.family();
        if (ip_type != 0 && ip_type != family) continue;
        const std::string address = entry.address.text();
        if (check_ip_type(network, family, address.c_str()) != kUsable) continue;
        if (with_subnets == 0) {
            print("ip:: %s\n", address.c_str());
        } else if (getsubnetmask(address.c_str()) != 0) {
            return 1;
        }
    }
    return 0;
}

uint32_t getsubnetmask(const char *address) {
    if (address == nullptr) {
        print("invalid ip string");
        return 1;
    }
    NetworkSource &network = network_source();
    if (!initialize(network)) return 1;
    const addrinfo hints = subnet_hints();
    std::vector<NetworkAddress> found;
    if (!network.look_up(address, &hints, found)) return 0;
    int length = 0;
    if (const int failure = network.subnet_prefix(found.front(), length); failure != 0) {
        print("querySubnetMask failed with ret: %d, for ip:%s\n", failure, address);
    } else {
        print("Subnet Mask : %s/%d\n", address, length);
    }
    return 0;
}

uint32_t network_discovery() {
    print_message(Message::discovery_result);
    return 0;
}
