// SPDX-License-Identifier: Apache-2.0
// The addresses of a server's hosts, shared by the clients of its programs: a name is asked for once, since the
// resolver may block, and what one client learnt about an address holds for the others.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/transport/address.h"

namespace nfstdm::rpc {

class AddressBook {
  public:
    using Resolver = std::function<Result<std::vector<Address>>(const std::string &host, uint16_t port)>;

    // Asks the system's resolver, or another.
    explicit AddressBook(Resolver resolver = resolve) : resolver_(std::move(resolver)) {}

    // In the order in which to try them.
    Result<std::vector<Address>> find(const std::string &host, uint16_t port);

    // An address that was connected to comes first from now on, one that fell silent last.
    void prefer(const std::string &host, const Address &address) { move(host, address, true); }
    void avoid(const std::string &host, const Address &address) { move(host, address, false); }

  private:
    void move(const std::string &host, const Address &address, bool to_front);

    const Resolver resolver_;
    std::map<std::string, std::vector<Address>> hosts_;
};

}  // namespace nfstdm::rpc
