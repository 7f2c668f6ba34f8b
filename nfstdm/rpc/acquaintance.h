// SPDX-License-Identifier: Apache-2.0
// Which connections lead to the server that is meant. A program whose requests rest on a state that one server keeps
// must not send them to another, and a further path, or a further address of a host, may lead to one.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/request.h"
#include "nfstdm/rpc/transport/address.h"

namespace nfstdm::rpc {

// How a program asks a server who it is.
class Introduction {
  public:
    virtual ~Introduction() = default;

    // What a new connection is asked before anything else: with an authenticator that needs no opening, without done.
    virtual std::unique_ptr<Request> question() = 0;
    // The name that the answer gives the server, never empty; fails when there is none in it.
    virtual Result<std::string> name_in(const Request &answered) = 0;
};

class Acquaintance {
  public:
    // several: there are several paths, none of which is trusted before somebody there has said who it is.
    explicit Acquaintance(bool several) : several_(several) {}

    // Whether somebody at this address is to be asked. At the first address of an only path nobody is: whom the program
    // speaks to there it finds out by itself, see know().
    bool must_ask(const Address &peer);
    // What was said there. Fails when it is another server; in_use: the program speaks to somebody already.
    Status meet(const Address &peer, const std::string &name, bool in_use);
    // The name of the server that is meant. True when it has another one than before: it may be asked for everywhere.
    bool know(const std::string &name);
    bool is_stranger(const Address &peer) const;
    void forget();

  private:
    const bool several_;
    std::string home_;  // the address where the server was met first
    std::string name_;  // empty = not told yet
    std::vector<std::string> strangers_;
};

}  // namespace nfstdm::rpc
