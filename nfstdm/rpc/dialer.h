// SPDX-License-Identifier: Apache-2.0
// Makes one TCP connection to a host that may have several addresses: begins with the first and puts the next beside it
// as soon as that one has failed or has not answered for a moment (RFC 8305 section 5). The first that connects wins.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "nfstdm/base/descriptor.h"
#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/base/status.h"
#include "nfstdm/rpc/timing.h"
#include "nfstdm/rpc/transport/address.h"
#include "nfstdm/rpc/transport/socket.h"

namespace nfstdm::rpc {

struct Dialled {
    Descriptor socket;        // connected; none when that failed
    Address address;          // that it is connected to
    Status failure;           // the last one, when there is no connection
    bool unanswered = false;  // some address gave no answer at all, and may be about to
};

class Dialer {
  public:
    using Done = std::function<void(Dialled)>;

    // timing must outlive the object, as must the loop.
    Dialer(EventLoop &loop, const Timing &timing) : loop_(loop), timing_(timing), timer_(loop) {}
    ~Dialer() { cancel(); }
    Dialer(const Dialer &) = delete;
    Dialer &operator=(const Dialer &) = delete;

    // Tries every address once. done is called once, from the loop, unless cancel() comes first; then never.
    void dial(std::vector<Address> addresses, const std::string &local, SourcePort source, Done done);
    void cancel();

  private:
    struct Attempt {
        std::size_t address;
        Descriptor socket;
    };

    void begin_next();
    bool begin(std::size_t address);
    void ready(std::size_t address);
    void finish(Dialled result);

    EventLoop &loop_;
    const Timing &timing_;
    ScopedTimer timer_;
    std::vector<Address> addresses_;
    std::string local_;
    SourcePort source_ = SourcePort::any;
    Done done_;
    std::size_t next_ = 0;
    std::vector<Attempt> attempts_;  // under way
    Status failure_;
};

}  // namespace nfstdm::rpc
