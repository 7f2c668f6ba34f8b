// SPDX-License-Identifier: Apache-2.0
// One question to the server, from the moment it is asked until its answer is delivered, over every sending.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>

#include "nfstdm/base/scoped.h"
#include "nfstdm/base/status.h"
#include "nfstdm/nfs4/compound.h"
#include "nfstdm/remote/put_off.h"
#include "nfstdm/rpc/request.h"

namespace nfstdm::nfs4 {

struct Call {
    // What is asked; filled in by the caller.
    std::string_view name;  // for texts; must outlive the call
    std::shared_ptr<rpc::Authenticator> authenticator;
    std::function<void(Compound &)> put;  // adds the operations behind SEQUENCE; called anew for every request made
    std::function<bool(Results &, const rpc::Request &)> read;  // false: an operation failed, or it makes no sense
    // Tells after read() that the work is not over yet: the call is made again after a pause.
    std::function<bool()> unfinished;
    std::function<void(Status)> done;  // called once, from the loop
    // Told what failed first; when it takes the call over (true), it starts it again or ends it itself.
    std::function<bool(NfsStatus, std::unique_ptr<Call> &)> rescue;
    std::span<const std::byte> data;  // sent behind the last operation
    std::span<std::byte> landing;     // takes the data of a READ that is the last operation
    rpc::Duration limit{};            // over all sendings; 0 = for ever
    bool needs_contact = false;       // fail as soon as no path leads to the server
    const void *owner = nullptr;      // whose call this is, see Session::fail_all()
    // The failure of a repeated call that tells that an earlier execution did the work; ok where executing it twice
    // ends like executing it once.
    NfsStatus done_before = NfsStatus::ok;
    // Told that it was met, and when the call was sent first: perhaps somebody else did the work.
    std::function<void(EventLoop::Clock::time_point)> found_done;
    rpc::Duration wait{};     // the next pause; zero = as for a server that is not ready
    bool repeatable = false;  // executing it twice is as good as a long answer that the server would have to keep
    bool reclaims = false;    // may be sent while the server gives state back

    // The session's own.
    uint32_t slot = 0;
    bool holds_slot = false;
    uint64_t session = 0;         // which of the sessions, in order, it was sent in last
    bool doubtful = false;        // the server may have executed it in its present session, unheard
    bool repeated = false;        // ... or in an earlier one, which took the answer with it
    bool completes = false;       // RECLAIM_COMPLETE was put in front
    bool only_completes = false;  // ... and the server takes no more operations at once
    EventLoop::Clock::time_point first_sent;
    unsigned restarts = 0;  // because of the session, not of the operation
    remote::PutOff put_off;
    std::unique_ptr<ScopedTimer> timer;
    std::unique_ptr<rpc::Request> delayed;  // to be sent again as it is
};

}  // namespace nfstdm::nfs4
