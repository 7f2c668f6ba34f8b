// SPDX-License-Identifier: Apache-2.0
// Whether a server still counts as answering. It no longer does once the time of a request was up, until anything is
// answered: what follows would otherwise wait as long, each request by itself, and a walk through a tree for days.
//
// A server whose file system hangs may answer NULL calls all the same. So they are believed once; when the next request
// is not answered either, the server has to wait as long as that one did before it is believed again.
#pragma once

#include <string>
#include <utility>

#include "nfstdm/rpc/request.h"

namespace nfstdm::rpc {

class Doubt {
  public:
    // Until the grace is over requests still wait, so that a server which merely lost one gets to answer the others.
    // waited: how long the request did, in vain.
    void begin(std::string why, Duration grace_ends, Duration waited) {
        why_ = std::move(why);
        grace_ends_ = grace_ends;
        believed_from_ = believed_ ? Clock::now() + waited : Clock::time_point{};
        alive_ = false;
    }
    void renew(Duration grace_ends) { grace_ends_ = grace_ends; }
    // A request was answered.
    void end() {
        why_.clear();
        believed_ = false;
    }
    // A NULL call was answered.
    void null_answered() {
        alive_ = true;
        believe_if_due();
    }
    // Ends where the server is alive and may be believed that by now.
    void believe_if_due() {
        if (why_.empty() || !alive_ || Clock::now() < believed_from_) return;
        why_.clear();
        believed_ = true;
    }

    explicit operator bool() const { return !why_.empty(); }
    bool settled(Duration now) const { return !why_.empty() && now >= grace_ends_; }
    const std::string &why() const { return why_; }

  private:
    // The application's time counts as well: what it does meanwhile fails at once.
    using Clock = std::chrono::steady_clock;

    std::string why_;
    Duration grace_ends_{};
    bool alive_ = false;     // it answered a NULL call since the doubt began
    bool believed_ = false;  // for which the last doubt ended, and no request was answered since
    Clock::time_point believed_from_{};
};

}  // namespace nfstdm::rpc
