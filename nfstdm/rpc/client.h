// SPDX-License-Identifier: Apache-2.0
// One program of one server, reached over any number of connections: gives each request an xid, spreads requests over
// the connections that work, sends them again with the same xid when a connection is lost, and gives up when their time
// is up.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/base/trace.h"
#include "nfstdm/rpc/acquaintance.h"
#include "nfstdm/rpc/address_book.h"
#include "nfstdm/rpc/channel.h"
#include "nfstdm/rpc/dispatch.h"
#include "nfstdm/rpc/doubt.h"
#include "nfstdm/rpc/request.h"
#include "nfstdm/rpc/timing.h"
#include "nfstdm/rpc/transport/transport.h"

namespace nfstdm::rpc {

struct ClientConfig {
    std::string server;  // its name, for texts
    Program program;
    std::vector<Path> paths;
    unsigned connections_per_path = 1;
    SourcePort source = SourcePort::reserved;
    Timing timing;
    TransportMaker transports = nullptr;     // null = plain TCP
    std::shared_ptr<AddressBook> addresses;  // shared with other clients of the server; null = one of its own
    Introduction *introduction = nullptr;    // must outlive the client; null = whoever answers is the server
};

// Every request submitted is given back exactly once, through its done function and from the loop, unless it is dropped
// or the client is destroyed first; then never. done may do anything, destroying the client included.
class Client : private ChannelOwner {
  public:
    Client(EventLoop &loop, ClientConfig config, const Trace &trace);
    ~Client() override;
    Client(const Client &) = delete;
    Client &operator=(const Client &) = delete;

    // What is asked and done must be set. The same request may be submitted again once it was given back; it is a new
    // one then, with an xid of its own.
    void submit(std::unique_ptr<Request> request);

    // Forgets every request of an owner without a word: their buffers are not touched again, their done not called.
    void drop(const void *owner);

    // False from when the time of a request was up until the server answers (see Doubt): what is submitted meanwhile
    // fails at once, or after a moment's grace.
    bool answering() const { return !doubt_; }

    // No request is to send or under way.
    bool idle() const { return outstanding_ == 0; }

    // The name of the server that requests were answered by, as an introduction would give it.
    void know_server(const std::string &name);

    // While idle: takes leave of the server, where its authenticators came to terms with it, without waiting, and
    // closes the connections, which the next request opens again.
    void close();

    // Bytes that the requests to send and under way move.
    std::size_t outstanding_bytes() const;

    // True while as many bytes are outstanding as the connections that work may carry: one more bulk request would only
    // queue behind the others.
    bool busy() const;
    unsigned usable_channels() const;

    const ClientConfig &config() const { return config_; }

  private:
    // So much may be outstanding on one connection; what is beyond that waits for whichever connection is free first.
    // The larger amount covers three gigabytes a second at a round trip of 10 ms. On a slow line it would only make
    // requests old, so it is for connections on which bulk requests are answered promptly.
    static constexpr std::size_t kConnectionBytes = std::size_t{8} << 20;
    static constexpr std::size_t kPromptConnectionBytes = std::size_t{32} << 20;
    // A request on the wire of this many connections that ended in nonsense is what the nonsense answers.
    static constexpr unsigned kFaultsMaximum = 3;
    // An identity that is refused so often in a row is not one that needs renewing.
    static constexpr unsigned kDenialsMaximum = 3;

    // A server in doubt is asked until it answers, whether somebody waits or not.
    bool has_work() const override { return outstanding_ > 0 || doubt_; }
    void channel_usable() override;
    void channel_remarks(const std::string &remark) override;
    void channel_proven() override;
    void channel_answered(std::unique_ptr<Request> request) override;
    void channel_sent(std::unique_ptr<Request> request) override { finish(std::move(request), {}); }
    void channel_lost(std::vector<std::unique_ptr<Request>> requests, const Status &why, bool nonsense) override;
    std::unique_ptr<Request> new_probe() override;
    std::unique_ptr<Request> new_question(const Address &peer) override;
    Status channel_introduced(const Request &answered, const Address &peer) override;
    bool is_stranger(const Address &peer) const override { return acquaintance_.is_stranger(peer); }

    void reconsider_strangers();
    std::unique_ptr<Request> seal_own(std::unique_ptr<Request> request);
    void begin_work();
    void pump();
    void hand_out();
    bool move_one();
    std::size_t connection_bytes() const { return prompt_ ? kPromptConnectionBytes : kConnectionBytes; }
    void conclude(std::unique_ptr<Request> request, Status status);
    void transmit(std::unique_ptr<Request> request, Channel &channel);
    void requeue(std::vector<std::unique_ptr<Request>> requests);
    void finish(std::unique_ptr<Request> request, const Status &status);
    void deliver();
    void give_up_unreachable();

    // client_security.cpp
    void open_authenticators();
    void begin_opening(const Request &first);
    void open_further(const std::shared_ptr<Authenticator> &authenticator, Result<std::optional<Opening>> next,
                      const Request &like);
    void opening_failed(const Authenticator *authenticator, const Status &why);
    void take_leave();

    // client_clock.cpp
    void tick();
    void expire();
    void begin_doubt(std::string why, Duration waited);
    void fail_doubted();
    Status doubtful() const;
    void report_silence();
    bool expired(const Request &request) const;

    std::unique_ptr<Request> withdraw(const Request &request);
    template <class Visit>
    void for_each(Visit &&visit) const {
        for (const auto &request : to_send_)
            visit(*request);
        for (const auto &channel : channels_)
            channel->for_each(visit);
    }

    EventLoop &loop_;
    const ClientConfig config_;
    const std::shared_ptr<AddressBook> addresses_;
    const Trace &trace_;
    Channels channels_;
    Acquaintance acquaintance_;

    std::deque<std::unique_ptr<Request>> to_send_;     // in order of submission
    std::set<const Authenticator *> opening_;          // whose requests wait for what the server says
    std::set<std::shared_ptr<Authenticator>> opened_;  // that came to terms with the server here
    std::deque<std::unique_ptr<Request>> done_;        // answered or given up, to be delivered from the loop
    std::size_t outstanding_ = 0;                      // requests to send and on channels
    uint64_t next_sequence_;
    Status last_trouble_;  // of any channel, to be named when time is up
    Doubt doubt_;

    // The client's clock counts the time spent in the loop while requests were outstanding: an application that comes
    // back after a long pause finds its requests no older than it left them.
    Duration clock_{};
    EventLoop::Clock::time_point last_tick_;
    ScopedTimer tick_timer_;
    bool worked_ = false;  // a request was submitted since the last tick
    Duration last_answer_{};
    bool reported_ = false;  // that the server does not answer
    bool prompt_ = false;    // so the latest bulk request was answered
    bool delivering_ = false;
    Lifeline life_;
};

}  // namespace nfstdm::rpc
