// SPDX-License-Identifier: Apache-2.0
// One connection and the requests on it: those to be sent, in order, the first perhaps by half, and those on the
// wire, found by xid.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/rpc/receiver.h"
#include "nfstdm/rpc/request.h"
#include "nfstdm/rpc/transport/transport.h"

namespace nfstdm::rpc {

// Told what happens, from the loop or from inside send(); may close or reopen the connection from there, not destroy
// it.
class ConnectionOwner {
  public:
    virtual ~ConnectionOwner() = default;

    // reply, landed and, for a record that did not hold together, status of the request are filled in.
    virtual void connection_answered(std::unique_ptr<Request> request) = 0;
    // Of a request that is one-way: its last byte has left.
    virtual void connection_sent(std::unique_ptr<Request> request) = 0;
    // The connection is closed already; its requests wait for take_all(). nonsense: because of what the server sent.
    virtual void connection_closed(const Status &why, bool nonsense) = 0;
};

class Connection : private RecordSink {
  public:
    Connection(EventLoop &loop, ConnectionOwner &owner) : loop_(loop), owner_(owner), receiver_(*this) {}
    ~Connection() override { close(); }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    // Uses a transport whose handshake is done from now on.
    void open(std::unique_ptr<Transport> connected);

    // Closes without telling the owner.
    void close();

    bool is_open() const { return transport_ != nullptr; }

    // Takes an open connection. The request is sealed.
    void send(std::unique_ptr<Request> request);

    // Of a closed connection: every request, in order of submission.
    std::vector<std::unique_ptr<Request>> take_all();

    // Takes away one request, sent or not. One that is sent by half takes the connection with it, as the rest of its
    // record can not be sent any more; the owner then hears of the closing.
    std::unique_ptr<Request> take(const Request &request);

    // Whether a request may go another way: of one that has left only a READ, for which asking twice does no harm; of
    // the others each, but one that is sent by half only when nothing else is here. The server can not have executed it
    // then, nor ever will, as the connection ends with it.
    bool movable(const Request &request) const;
    // Takes away a movable request. The answer to one on the wire still takes its time here. What is sent by half is
    // not for here, but for close() and take_all().
    std::unique_ptr<Request> move(const Request &request);
    bool half_sent(const Request &request) const { return cursor_ > 0 && sending_.front().get() == &request; }

    // Takes an open connection. The system holds so many bytes at most that it could not send yet. The others stay
    // here, where they are known not to have left.
    void limit_unsent(std::size_t bytes);

    // Visits every request, those to be sent first.
    template <class Visit>
    void for_each(Visit &&visit) const {
        for (const auto &request : sending_)
            visit(*request);
        for (const auto &[xid, request] : on_wire_)
            visit(*request);
    }

    bool idle() const { return sending_.empty() && on_wire_.empty(); }
    // Sum of the weights of its requests, and of those that were moved away and are still answered here.
    std::size_t weight() const { return weight_; }
    // Grows with every byte received and with every byte that the peer acknowledged.
    uint64_t progress() const;

  private:
    Request *expected(uint32_t xid) override;
    std::size_t record_maximum() const override { return record_maximum_; }
    void record_received(Request &request, bool whole) override;

    void ready(short events);
    void receive();
    void receive_held();
    void flush();
    void sent(std::size_t size);
    void watch();
    void fail(const Status &why, bool nonsense);

    EventLoop &loop_;
    ConnectionOwner &owner_;
    std::unique_ptr<Transport> transport_;
    short watched_ = 0;

    std::deque<std::unique_ptr<Request>> sending_;
    std::size_t cursor_ = 0;  // bytes of the first request to send that are sent
    std::unordered_map<uint32_t, std::unique_ptr<Request>> on_wire_;
    std::unordered_map<uint32_t, std::size_t> moved_;  // weights, by xid
    std::size_t weight_ = 0;
    bool parting_ = false;  // what was sent last is still to arrive when this is closed

    Receiver receiver_;
    std::size_t record_maximum_ = 0;  // over all requests of this connection, as an answer may come late
    uint64_t received_bytes_ = 0;
    uint64_t sent_bytes_ = 0;
    mutable uint64_t acknowledged_bytes_ = 0;
    bool resuming_ = false;  // a task is about to receive what the transport holds
    Lifeline life_;
};

}  // namespace nfstdm::rpc
