// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/address_book.h"

#include <algorithm>

namespace nfstdm::rpc {

Result<std::vector<Address>> AddressBook::find(const std::string &host, uint16_t port) {
    auto known = hosts_.find(host);
    if (known == hosts_.end()) {
        auto resolved = resolver_(host, 0);
        if (!resolved.ok()) return resolved;
        known = hosts_.emplace(host, std::move(resolved.value())).first;
    }
    std::vector<Address> addresses = known->second;
    for (Address &address : addresses)
        set_port(address, port);
    return addresses;
}

void AddressBook::move(const std::string &host, const Address &address, bool to_front) {
    const auto known = hosts_.find(host);
    if (known == hosts_.end()) return;
    std::stable_partition(known->second.begin(), known->second.end(), [&address, to_front](const Address &each) {
        return is_same_host(each, address) == to_front;
    });
}

}  // namespace nfstdm::rpc
