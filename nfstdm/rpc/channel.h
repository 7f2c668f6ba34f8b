// SPDX-License-Identifier: Apache-2.0
// One way to the server that is kept usable: connects when there is work, waits between attempts, notices silence, and
// lets a connection prove itself before requests are trusted to it, where another could take them or the last one fell
// silent.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/rpc/address_book.h"
#include "nfstdm/rpc/connection.h"
#include "nfstdm/rpc/dialer.h"
#include "nfstdm/rpc/handshake.h"
#include "nfstdm/rpc/rate_meter.h"
#include "nfstdm/rpc/timing.h"
#include "nfstdm/rpc/transport/transport.h"

namespace nfstdm::rpc {

// Where a program of the server is reached.
struct Path {
    std::string host;  // name or address
    uint16_t port = 0;
    std::string local;  // name or address to bind, empty for any

    bool operator==(const Path &) const = default;
};

class ChannelOwner {
  public:
    virtual ~ChannelOwner() = default;

    // Whether a channel that is not connected should try to be.
    virtual bool has_work() const = 0;
    virtual void channel_usable() = 0;
    // What there is to tell about a connection.
    virtual void channel_remarks(const std::string &remark) = 0;
    // Somebody is there: a NULL call was answered.
    virtual void channel_proven() = 0;
    virtual void channel_answered(std::unique_ptr<Request> request) = 0;
    virtual void channel_sent(std::unique_ptr<Request> request) = 0;
    // The channel can not be used now and tries again by itself while there is work; requests is what was on it, in
    // order of submission. nonsense: because of what the server sent.
    virtual void channel_lost(std::vector<std::unique_ptr<Request>> requests, const Status &why, bool nonsense) = 0;
    // A NULL call of the channel's program, sealed.
    virtual std::unique_ptr<Request> new_probe() = 0;

    // What somebody at a new address is asked before requests are trusted to the connection, sealed; null = nothing.
    virtual std::unique_ptr<Request> new_question(const Address & /*peer*/) { return nullptr; }
    // Whether the answer to that is the answer of the server that is meant.
    virtual Status channel_introduced(const Request & /*answered*/, const Address & /*peer*/) { return {}; }
    // Another server is known to be there.
    virtual bool is_stranger(const Address & /*peer*/) const { return false; }
};

struct ChannelConfig {
    Path path;
    SourcePort source = SourcePort::reserved;
    Timing timing;
    bool one_of_several = false;  // there are other ways to the server
    TransportMaker transports = nullptr;
};

class Channel : private ConnectionOwner {
  public:
    // The book must outlive the channel, as must loop and owner.
    Channel(EventLoop &loop, ChannelOwner &owner, AddressBook &book, ChannelConfig config);

    // There is work: connects unless that is done, under way, or put off.
    void wake();
    // Strangers are none any more.
    void reconsider();

    // Takes a usable channel.
    void send(std::unique_ptr<Request> request);
    std::unique_ptr<Request> take(const Request &request) { return connection_.take(request); }
    // Whether a request of this channel may go another way, and takes it away for that. What is sent by half takes the
    // connection with it, which only another path is worth; the channel is usable again by itself then.
    bool movable(const Request &request) const;
    bool ends_with(const Request &request) const { return connection_.half_sent(request); }
    std::unique_ptr<Request> move(const Request &request);
    template <class Visit>
    void for_each(Visit &&visit) const {
        connection_.for_each(visit);
    }

    bool usable() const { return state_ == State::usable; }
    // Nobody has answered for long: asks at once whether anyone is there, and trusts no new connection before it did.
    void doubt();
    // Every address was tried and refused or found to lead nowhere since the channel was last usable. One that merely
    // does not answer may be about to.
    bool unreachable() const { return unreachable_; }
    std::size_t weight() const { return connection_.weight(); }
    const RateMeter &meter() const { return meter_; }
    // Host and port, for texts.
    std::string where() const;

    // elapsed more time was spent waiting; alone: requests have no other channel to go to.
    void tick(Duration elapsed, bool alone);

    // Back to where nothing was tried yet. Requests on the channel are lost to the owner without a word: there are
    // none.
    void close();

  private:
    enum class State : uint8_t {
        idle,        // nothing to do, or not tried yet
        connecting,  // to the host, handshake included
        meeting,     // connected, waiting to be told who is there
        proving,     // connected, waiting for the answer to a NULL call
        usable,
        waiting,  // between attempts
        left,     // another server is there, whatever the address
    };

    void connection_answered(std::unique_ptr<Request> request) override;
    void connection_sent(std::unique_ptr<Request> request) override { owner_.channel_sent(std::move(request)); }
    void connection_closed(const Status &why, bool nonsense) override;

    void measure();
    void limit_unsent();
    std::unique_ptr<Request> take_half_sent();
    void begin_round();
    void dialled(Dialled result);
    std::unique_ptr<Transport> new_transport(Descriptor connected) const;
    void connected(Result<std::unique_ptr<Transport>> transport);
    void become_usable();
    void introduced(const Request &answered);
    bool moved();
    Duration silence_limit(bool alone) const;
    void grow_patience();
    void probe();
    void ask(std::unique_ptr<Request> request);
    void lost(const Status &why, bool nonsense);
    void wait_and_retry();

    ChannelOwner &owner_;
    AddressBook &book_;
    const ChannelConfig config_;
    Dialer dialer_;
    Handshake handshake_;
    Connection connection_;
    RateMeter meter_;  // of the connection
    ScopedTimer timer_;
    State state_ = State::idle;

    Address address_;        // of the connection
    unsigned attempts_ = 0;  // in a row that brought no answer
    bool proven_ = false;    // this connection has brought an answer
    bool unreachable_ = false;
    bool doubted_ = false;  // the last connection fell silent
    unsigned patience_ = 1;

    std::size_t probe_bytes_ = 0;  // of the NULL call that is outstanding; 0 = none
    uint64_t progress_ = 0;        // of the connection, when last looked at
    Duration quiet_{};             // since then
};

}  // namespace nfstdm::rpc
