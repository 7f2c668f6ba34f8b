// SPDX-License-Identifier: Apache-2.0
// The session with one server (RFC 8881 section 2.10), which the exports of that server share: made when it is first
// needed, made again when the server has lost it, ended with a farewell.
//
// Exactly once: a request whose connection is lost is sent again by rpc::Client as it was, slot and sequence number
// included, and the server gives the answer it kept. Only when the session itself is gone is a request made anew.
//
// Trunking (section 2.10.5): a further path or address is used only when the server there names the same owner and
// scope.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/scoped.h"
#include "nfstdm/base/status.h"
#include "nfstdm/nfs4/arguments.h"
#include "nfstdm/nfs4/call.h"
#include "nfstdm/nfs4/replies.h"
#include "nfstdm/nfs4/slots.h"
#include "nfstdm/remote/put_off.h"
#include "nfstdm/remote/server.h"
#include "nfstdm/rpc/client.h"

namespace nfstdm::nfs4 {

// Who has state on the server that a new client id loses.
class StateHolder {
  public:
    virtual ~StateHolder() = default;

    // Calls that ask for the state back, each marked as reclaiming; those that fail may be asked for anew later.
    virtual std::vector<std::unique_ptr<Call>> reclaim() = 0;
};

class Session : private rpc::Introduction {
  public:
    static constexpr uint32_t kSlotsMaximum = 64;
    static constexpr uint32_t kHighestMinorVersion = 2;

    // server must outlive the session. minor_version: 1 or 2, or 0 for the highest that both sides have.
    Session(remote::Server &server, uint32_t minor_version);
    ~Session() override;
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    remote::Server &server() { return server_; }

    // Between these the session is kept. With the last user it is ended: done is called once, from the loop, at the
    // latest after a moment. The user has no call under way then.
    void add_user(StateHolder &user) { users_.insert(&user); }
    void remove_user(StateHolder &user, DoneCompletion done);

    // What a user asks for last, in the same request that ends the session.
    struct LastWords {
        std::size_t operations = 0;
        std::shared_ptr<rpc::Authenticator> authenticator;
        std::function<void(Compound &)> put;
        std::function<bool(Results &)> read;  // false: not all of it was done
    };
    // Nobody else uses the session, nothing is under way in it, and the request has room for the words.
    bool can_end_with(const StateHolder &user, const LastWords &words) const;
    // A failure: the server did not take them so. The session is kept, and to be left as above.
    void end_with(const LastWords &words, DoneCompletion done);

    // Sends a call when there is a session and a slot.
    void start(std::unique_ptr<Call> call);
    // Ends the calls of an owner with a failure, from inside. Their buffers are not touched any more when this begins.
    void fail_all(const void *owner, const Status &status);

    // One more bulk request would only queue behind the others.
    bool busy() const;
    // What the server granted; valid once a call has succeeded.
    const ChannelSizes &sizes() const { return sizes_; }
    uint32_t minor_version() const { return minor_; }
    // The client id, and a number that was never used with it.
    OpenOwner new_open_owner() { return {client_id_, next_owner_++}; }

  private:
    enum class State : uint8_t { down, waiting, identifying, creating, reclaiming, up };
    using CallPointer = std::unique_ptr<Call>;

    // Making a session.
    void make();
    void ask(Op op, const std::function<void(Compound &)> &put, std::function<void(Results &)> answered);
    void identify();
    void identified(Results &results);
    void create();
    void created(Results &results);
    void reclaim();
    void reclaimed();
    void make_later(void (Session::*step)());
    void put_off_making(void (Session::*step)());
    void make_failed(const Status &why);
    void lose_session();

    // Who is behind a path.
    std::unique_ptr<rpc::Request> question() override;
    Result<std::string> name_in(const rpc::Request &answered) override;
    static std::unique_ptr<rpc::Request> bare_request(Op op, Compound &compound);

    // Calls.
    bool may_send() const;
    void pump();
    void send(CallPointer call, uint32_t slot);
    Compound new_compound(const Call &call) const;
    static std::unique_ptr<rpc::Request> new_request(const Call &call, Compound &compound);
    void submit(Call &call, std::unique_ptr<rpc::Request> request);
    void answered(Call &call, std::unique_ptr<rpc::Request> request);
    bool is_answer_to(const SequenceReply &reply, const Call &call) const;
    void refused(Call &call, NfsStatus status, std::unique_ptr<rpc::Request> request);
    void executed(Call &call, Results &results, const rpc::Request &request);
    void failed(Call &call, NfsStatus status);
    void leave_slot(Call &call, void (Slots::*how)(uint32_t));
    static void spend(Call &call, rpc::Duration spent);
    void wait(Call &call, std::function<void(Call &)> then);
    void send_again(Call &call);
    void restart(Call &call);
    void repeat_unkept(Call &call);
    void requeue(Call &call);
    void bind_connection(Call &call);
    CallPointer take(const Call &call);
    void finish(Call &call, const Status &status);
    Status in_context(const Call &call, const Status &status) const;
    rpc::Duration limit() const;

    // session_farewell.cpp
    void begin_farewell(DoneCompletion done);
    void take_leave();
    void farewell_answered();
    void go_on_for_user();
    void farewell_said();

    remote::Server &server_;
    EventLoop &loop_;
    remote::PutOffs put_offs_;
    const bool highest_wanted_;
    uint32_t minor_;
    uint32_t introduction_minor_ = 1;  // which nearly every server has
    std::unique_ptr<rpc::Client> client_;
    const std::string owner_;
    const uint64_t verifier_;
    std::shared_ptr<rpc::Authenticator> authenticator_;  // who the session is made as

    State state_ = State::down;
    uint64_t client_id_ = 0;
    bool contacted_ = false;        // some session was made
    bool identified_ = false;       // client_id_ is one that the server gave
    bool state_lost_ = false;       // with the client id before this one
    bool must_complete_ = false;    // RECLAIM_COMPLETE is still to be sent
    uint32_t create_sequence_ = 0;  // of CREATE_SESSION
    uint64_t session_number_ = 0;   // of this session, in order
    unsigned attempts_ = 0;         // to make a session, since the last one worked
    rpc::Duration make_wait_{};
    remote::PutOff make_put_off_;
    EventLoop::Clock::time_point deadline_;  // of the first contact
    SessionId session_{};
    ChannelSizes sizes_;
    Slots slots_;
    uint64_t next_owner_ = 1;
    unsigned reclaiming_ = 0;  // calls under way
    std::set<StateHolder *> users_;

    std::deque<CallPointer> queue_;  // to be sent, in order
    std::list<CallPointer> running_;
    ScopedTimer timer_;
    DoneCompletion farewell_;
    unsigned farewells_ = 0;       // unanswered
    bool session_stays_ = false;   // until the server has been told otherwise
    bool client_is_busy_ = false;  // what the server said of the client id, to a farewell
    bool words_refused_ = false;   // the last ones, or the end of the session behind them
    bool left_again_ = false;
    Lifeline life_;
};

}  // namespace nfstdm::nfs4
