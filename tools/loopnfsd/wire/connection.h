// SPDX-License-Identifier: Apache-2.0
// One client's connection: bytes in, calls executed, replies out, and what is done to all three on purpose.
#pragma once

#include <deque>
#include <functional>

#include "nfstdm/base/event_loop.h"
#include "tools/loopnfsd/base/alarm.h"
#include "tools/loopnfsd/faults/faults.h"
#include "tools/loopnfsd/wire/call.h"
#include "tools/loopnfsd/wire/rate_limit.h"
#include "tools/loopnfsd/wire/record.h"
#include "tools/loopnfsd/wire/reply_line.h"
#include "tools/loopnfsd/wire/rpc.h"
#include "tools/loopnfsd/wire/statistics.h"
#include "tools/loopnfsd/wire/stream.h"

namespace loopnfsd {

// What all connections share. Must outlive them.
struct Surroundings {
    nfstdm::EventLoop &loop;
    Dispatcher &dispatcher;
    Faults &faults;
    Statistics &statistics;
    TlsService &tls;
    std::size_t record_maximum;  // bytes of the largest call that is accepted
};

class Connection {
  public:
    // closed is called once, when the connection has come to its end; it must not destroy the connection at once.
    Connection(const Surroundings &surroundings, UniqueFd socket, Arrival arrival, std::function<void()> closed);
    ~Connection();
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Looks at the faults again.
    void wake();
    // As a fault does it: reset or not.
    void cut();

  private:
    void ready(short events);
    void woken();
    void receive();
    void serve();
    void act_on(Answer answer);
    void pump();
    bool send();
    bool send_some(uint64_t limit);
    void drop_sent(std::size_t size);
    void start_tls();
    void wait_for_more();
    bool at_cut();
    uint64_t before_cut() const;
    LineConditions conditions() const;
    void close();

    Surroundings around_;
    Stream stream_;
    Arrival arrival_;
    std::function<void()> closed_;
    RecordReader reader_;
    ReplyLine line_;
    std::deque<Record> sending_;
    std::size_t sent_ = 0;  // bytes of the first record in sending_
    RateLimit in_;
    RateLimit out_;
    uint64_t passed_ = 0;  // bytes, both ways
    short watched_ = 0;    // poll events
    Alarm alarm_;
};

}  // namespace loopnfsd
