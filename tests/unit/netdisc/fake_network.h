// SPDX-License-Identifier: Apache-2.0
// A network of the tests' own, whose every service can be told to fail.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstring>
#include <stdexcept>
#include <string>

#include "platform/addresses.h"

inline NetworkAddress address_of(const std::string &text) {
    sockaddr_storage storage = {};
    sockaddr_in v4 = {};
    sockaddr_in6 v6 = {};
    v4.sin_family = AF_INET;
    v6.sin6_family = AF_INET6;
    if (inet_pton(AF_INET, text.c_str(), &v4.sin_addr) == 1) {
        std::memcpy(&storage, &v4, sizeof v4);
    } else if (inet_pton(AF_INET6, text.c_str(), &v6.sin6_addr) == 1) {
        std::memcpy(&storage, &v6, sizeof v6);
    } else {
        throw std::invalid_argument(text);
    }
    return *NetworkAddress::from(reinterpret_cast<const sockaddr *>(&storage));
}

class FakeNetwork : public NetworkSource {
  public:
    void add(const std::string &address, const std::string &netmask) {
        addresses_.push_back({address_of(address), address_of(netmask)});
    }
    void add_without_netmask(const std::string &address) { addresses_.push_back({address_of(address), std::nullopt}); }

    bool initialize(std::string &reason) override {
        if (initializations_left-- > 0) return true;
        reason = "out of order";
        return false;
    }
    bool local_addresses(std::vector<InterfaceAddress> &addresses) override {
        addresses = addresses_;
        return has_list;
    }
    bool look_up(const std::string &text, const addrinfo *hints, std::vector<NetworkAddress> &found) override {
        hints_were_given = hints != nullptr;
        return text != unknown && NetworkSource::look_up(text, hints, found);
    }

    int initializations_left = 1000;
    bool has_list = true;
    std::string unknown;  // a text that is not found
    bool hints_were_given = false;

  private:
    std::vector<InterfaceAddress> addresses_;
};
