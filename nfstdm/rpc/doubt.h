// SPDX-License-Identifier: Apache-2.0
// Whether a server still counts as answering. It no longer does once the time of a request was up, until anything is
// answered: what follows would otherwise wait as long, each request by itself, and a walk through a tree for days.
#pragma once

#include <string>
#include <utility>

#include "nfstdm/rpc/request.h"

namespace nfstdm::rpc {

class Doubt {
  public:
    // Until the grace is over requests still wait, so that a server which merely lost one gets to answer the others.
    void begin(std::string why, Duration grace_ends) {
        why_ = std::move(why);
        grace_ends_ = grace_ends;
    }
    void renew(Duration grace_ends) { grace_ends_ = grace_ends; }
    void end() { why_.clear(); }

    explicit operator bool() const { return !why_.empty(); }
    bool settled(Duration now) const { return !why_.empty() && now >= grace_ends_; }
    const std::string &why() const { return why_; }

  private:
    std::string why_;
    Duration grace_ends_{};
};

}  // namespace nfstdm::rpc
