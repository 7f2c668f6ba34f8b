// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/session.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <utility>

#include "nfstdm/base/random.h"
#include "nfstdm/nfs4/status_table.h"
#include "nfstdm/volume/sizes.h"

namespace nfstdm::nfs4 {

namespace {

// Room for the data of a transfer and all that stands around it.
constexpr uint32_t kChannelBytes = kTransferMaximum + 4096;
constexpr uint32_t kCachedBytes = 8192;
constexpr uint32_t kOperations = 64;
constexpr rpc::Duration kMoment = std::chrono::milliseconds(1);  // a limit of nothing would be none
// A call that makes the session break each time it is sent.
constexpr unsigned kRestartsMaximum = 32;
constexpr unsigned kSessionsMaximum = 16;  // to make a session that works

// Each process is a client of its own: what one does to its state is nothing to the others.
std::string new_owner() {
    std::array<char, 256> host{};
    if (gethostname(host.data(), host.size() - 1) != 0) host[0] = '\0';
    return "tslwnfs " + std::string(host.data()) + " " + std::to_string(getpid()) + " " +
           std::to_string(random_number());
}

// What tells servers apart: sessions may be shared by the paths to one server owner in one scope.
std::string name_of(const ExchangeReply &reply) {
    return reply.server + " in " + reply.scope;
}

}  // namespace

Session::Session(remote::Server &server, uint32_t minor_version)
    : server_(server),
      loop_(server.loop()),
      put_offs_(server.trace(), server.timing().jukebox_notice),
      highest_wanted_(minor_version == 0),
      minor_(minor_version == 0 ? kHighestMinorVersion : minor_version),
      client_(server.new_nfs4_client(*this)),
      owner_(new_owner()),
      verifier_(random_number()),
      timer_(loop_) {}

Session::~Session() {
    client_->drop(this);
}

rpc::Duration Session::limit() const {
    // A farewell is a courtesy: the server would notice by itself, a lease later.
    if (farewells_ > 0) return std::chrono::seconds(2);
    if (contacted_) return std::chrono::seconds(server_.config().io_timeout_seconds);
    return std::max<rpc::Duration>(deadline_ - EventLoop::Clock::now(), kMoment);
}

// --- making a session

void Session::make() {
    assert(state_ == State::down && !queue_.empty());
    authenticator_ = queue_.front()->authenticator;
    deadline_ = EventLoop::Clock::now() + (contacted_ ? limit() : server_.contact_limit());
    if (attempts_ == 0) make_wait_ = server_.timing().jukebox_first;
    const auto step = identified_ ? &Session::create : &Session::identify;
    if (++attempts_ > 1) return make_later(step);
    (this->*step)();
}

// Sends an operation that needs no session; what it is answered with goes to a step of the making.
void Session::ask(Op op, const std::function<void(Compound &)> &put, std::function<void(Results &)> answered) {
    Compound compound(minor_);
    put(compound);
    auto request = bare_request(op, compound);
    request->authenticator = authenticator_;
    request->limit = limit();
    request->needs_contact = !contacted_ || farewells_ > 0;
    request->owner = this;
    request->done = [this, answered = std::move(answered)](const std::unique_ptr<rpc::Request> &done) {
        if (farewells_ == 0 && !done->status.ok()) return make_failed(done->status);
        Results results(done->results());
        answered(results);
    };
    client_->submit(std::move(request));
}

std::unique_ptr<rpc::Request> Session::bare_request(Op op, Compound &compound) {
    auto request = std::make_unique<rpc::Request>();
    request->name = row_of(op).name;
    request->results_maximum = compound.results_maximum();
    request->procedure = kProcCompound;
    request->arguments = compound.take();
    return request;
}

// As somebody else than the owner of the session, whose client id an EXCHANGE_ID at the wrong time would replace
// (RFC 8881 section 18.35.4). That client is never confirmed, so the server forgets it.
std::unique_ptr<rpc::Request> Session::question() {
    Compound compound(introduction_minor_);
    put_exchange_id(compound, {verifier_, owner_ + " looking"});
    auto request = bare_request(Op::exchange_id, compound);
    if (auto caller = server_.mount_authenticator("sys"); caller.ok()) request->authenticator = caller.value();
    return request;
}

Result<std::string> Session::name_in(const rpc::Request &answered) {
    const std::string what(row_of(Op::exchange_id).name);
    if (!answered.status.ok()) return answered.status.in(what);
    Results results(answered.results());
    ExchangeReply reply;
    if (results.next(Op::exchange_id) && get_exchange_id(results.reader(), reply)) return name_of(reply);
    const NfsStatus failure = results.failure();
    if (failure == NfsStatus::minor_vers_mismatch) introduction_minor_ = 1 + introduction_minor_ % kHighestMinorVersion;
    return to_status(failure).in(what);
}

void Session::identify() {
    state_ = State::identifying;
    ask(
        Op::exchange_id,
        [this](Compound &compound) {
            put_exchange_id(compound, {verifier_, owner_});
        },
        [this](Results &results) { identified(results); });
}

void Session::identified(Results &results) {
    ExchangeReply reply;
    if (!results.next(Op::exchange_id) || !get_exchange_id(results.reader(), reply)) {
        const NfsStatus failure = results.failure();
        if (failure == NfsStatus::minor_vers_mismatch && highest_wanted_ && minor_ > 1) {
            --minor_;
            return identify();
        }
        if (failure == NfsStatus::delay) return put_off_making(&Session::identify);
        return make_failed(to_status(failure).in("EXCHANGE_ID").in("server " + server_.name()));
    }
    // A client id that is not confirmed yet is a new one, which has none of the state there was.
    const bool is_new = (reply.flags & kFlagConfirmed) == 0;
    state_lost_ = state_lost_ || is_new;
    must_complete_ = must_complete_ || is_new;
    client_id_ = reply.client;
    create_sequence_ = reply.sequence;
    identified_ = true;
    client_->know_server(name_of(reply));
    create();
}

void Session::create() {
    state_ = State::creating;
    const ChannelSizes sizes{kChannelBytes, kChannelBytes, kCachedBytes, kOperations, kSlotsMaximum};
    ask(
        Op::create_session,
        [&](Compound &compound) { put_create_session(compound, client_id_, create_sequence_, sizes); },
        [this](Results &results) { created(results); });
}

void Session::created(Results &results) {
    SessionReply reply;
    if (!results.next(Op::create_session) || !get_create_session(results.reader(), reply)) {
        const NfsStatus failure = results.failure();
        if (failure == NfsStatus::delay) return put_off_making(&Session::create);
        const bool unknown = failure == NfsStatus::stale_clientid || failure == NfsStatus::seq_misordered;
        if (unknown && ++attempts_ <= kSessionsMaximum) {
            identified_ = false;
            return make_later(&Session::identify);
        }
        return make_failed(to_status(failure).in("CREATE_SESSION").in("server " + server_.name()));
    }
    put_offs_.answered(make_put_off_, server_.name());
    ++create_sequence_;
    ++session_number_;
    contacted_ = true;
    session_ = reply.session;
    sizes_ = reply.fore;
    slots_.reset(std::clamp(sizes_.requests, 1U, kSlotsMaximum));
    reclaim();
}

void Session::reclaim() {
    state_ = State::reclaiming;
    if (std::exchange(state_lost_, false)) {
        for (StateHolder *user : users_)
            for (auto &call : user->reclaim()) {
                ++reclaiming_;
                call->reclaims = true;
                call->done = [this, number = session_number_, done = std::move(call->done)](Status status) {
                    done(std::move(status));
                    if (number != session_number_) return;
                    --reclaiming_;
                    reclaimed();
                };
                queue_.push_front(std::move(call));
            }
    }
    reclaimed();
}

void Session::reclaimed() {
    if (state_ == State::reclaiming && reclaiming_ == 0) state_ = State::up;
    pump();
}

// The server is not ready, or wants to be asked otherwise.
void Session::make_later(void (Session::*step)()) {
    state_ = State::waiting;
    timer_.after(make_wait_, [this, step] {
        const bool has_end = !contacted_ || limit() > rpc::Duration::zero();
        if (has_end && EventLoop::Clock::now() >= deadline_)
            return make_failed(
                Status{ETIMEDOUT, "the server was not ready in all the time given"}.in("server " + server_.name()));
        (this->*step)();
    });
    make_wait_ = std::min(make_wait_ * 2, server_.timing().jukebox_most);
}

void Session::put_off_making(void (Session::*step)()) {
    put_offs_.put_off(make_put_off_, RecordKind::delay, server_.name());
    make_later(step);
}

void Session::make_failed(const Status &why) {
    timer_.cancel();
    make_put_off_.reset();
    state_ = State::down;
    attempts_ = 0;
    const auto life = life_.watch();
    // That one identity is refused says nothing of the others, which may make the session.
    std::deque<CallPointer> failed;
    for (auto &call : queue_)
        if (!why.is(Condition::credential) || call->authenticator == authenticator_) failed.push_back(std::move(call));
    std::erase(queue_, nullptr);
    for (auto &call : failed) {
        call->done(why);
        if (life.expired()) return;
    }
    pump();
}

// The server does not know the session any more. Its client id may still be good, and with it what is open.
void Session::lose_session() {
    if (state_ != State::up && state_ != State::reclaiming) return;
    server_.trace().write(TraceLevel::notice, TraceComponent::nfs,
                          [this] { return "server " + server_.name() + ": the session is lost, making another"; });
    state_lost_ = state_lost_ || reclaiming_ > 0;
    reclaiming_ = 0;
    std::erase_if(queue_, [](const CallPointer &call) { return call->reclaims; });
    state_ = State::down;
}

// --- calls

void Session::start(std::unique_ptr<Call> call) {
    if (call->wait == rpc::Duration::zero()) call->wait = server_.timing().jukebox_first;
    call->timer = std::make_unique<ScopedTimer>(loop_);
    queue_.push_back(std::move(call));
    pump();
}

bool Session::may_send() const {
    if (state_ == State::reclaiming) return queue_.front()->reclaims;
    // Until reclaiming is declared over the server may refuse everything else.
    return state_ == State::up && (!must_complete_ || slots_.used() == 0);
}

void Session::pump() {
    if (state_ == State::down && farewells_ == 0 && !queue_.empty()) return make();
    while (!queue_.empty() && may_send()) {
        const auto slot = slots_.take();
        if (!slot) break;
        auto call = std::move(queue_.front());
        queue_.pop_front();
        send(std::move(call), *slot);
    }
    if (state_ == State::up && !slots_.usable()) {
        lose_session();
        if (!queue_.empty()) make();
    }
}

void Session::send(CallPointer pointer, uint32_t slot) {
    Call &call = *pointer;
    running_.push_back(std::move(pointer));
    call.slot = slot;
    call.holds_slot = true;
    call.session = session_number_;
    call.doubtful = false;
    call.completes = must_complete_ && !call.reclaims;
    call.only_completes = false;
    Compound compound = new_compound(call);
    if (compound.operations() > sizes_.operations && call.completes) {
        call.only_completes = true;
        compound = new_compound(call);
    }
    Status problem;
    if (compound.operations() > sizes_.operations)
        problem = {EMSGSIZE, "the server takes only " + std::to_string(sizes_.operations) + " operations in a request"};
    if (!compound.ok()) problem = {ENAMETOOLONG, "a name is too long"};
    if (problem.ok()) return submit(call, new_request(call, compound));
    leave_slot(call, &Slots::refused);
    call.timer->after({}, [this, &call, problem] { finish(call, problem); });
}

Compound Session::new_compound(const Call &call) const {
    Compound compound(minor_);
    put_sequence(compound, {session_, slots_.sequence(call.slot), call.slot, slots_.highest(), false});
    const std::size_t cache = compound.last_word();
    if (call.completes) put_reclaim_complete(compound);
    if (call.only_completes) return compound;
    call.put(compound);
    if (compound.changes() && !call.repeatable) compound.patch(cache, 1);
    return compound;
}

std::unique_ptr<rpc::Request> Session::new_request(const Call &call, Compound &compound) {
    auto request = std::make_unique<rpc::Request>();
    request->name = call.name;
    request->results_maximum = compound.results_maximum();
    request->limit = call.limit;
    request->needs_contact = call.needs_contact;
    request->owner = call.owner;
    request->procedure = kProcCompound;
    request->authenticator = call.authenticator;
    request->arguments = compound.take();
    if (call.only_completes) return request;
    request->data = call.data;
    request->landing = call.landing;
    if (!call.landing.empty()) request->data_position = read_data_position;
    return request;
}

void Session::submit(Call &call, std::unique_ptr<rpc::Request> request) {
    request->done = [this, &call](std::unique_ptr<rpc::Request> done) { answered(call, std::move(done)); };
    client_->submit(std::move(request));
}

void Session::answered(Call &call, std::unique_ptr<rpc::Request> request) {
    const bool current = call.session == session_number_;
    call.doubtful = call.doubtful || request->sends > 1;
    if (call.first_sent == EventLoop::Clock::time_point{}) call.first_sent = request->first_sent;
    if (!request->status.ok()) {
        leave_slot(call, &Slots::lose);
        // The context is in the status already.
        auto ended = take(call);
        const auto life = life_.watch();
        ended->done(request->status);
        if (!life.expired()) pump();
        return;
    }
    Results results(request->results());
    SequenceReply reply;
    const bool done = results.next(Op::sequence);
    if (!done && results.failure() != NfsStatus::ok) return refused(call, results.failure(), std::move(request));
    if (!done || !get_sequence(results.reader(), reply) || (current && !is_answer_to(reply, call))) {
        leave_slot(call, &Slots::lose);
        return finish(call, {EIO, "the server's answer makes no sense"});
    }
    leave_slot(call, &Slots::executed);
    if (current) {
        slots_.set_target(reply.target_slot);
        attempts_ = 0;
        if ((reply.flags & kStatusRestartReclaimNeeded) != 0 && state_ == State::up && !call.completes) {
            state_lost_ = must_complete_ = true;
            reclaim();
        }
    }
    spend(call, request->spent);
    executed(call, results, *request);
}

bool Session::is_answer_to(const SequenceReply &reply, const Call &call) const {
    return reply.session == session_ && reply.slot == call.slot && reply.sequence == slots_.sequence(call.slot);
}

// SEQUENCE itself failed: nothing of the compound was executed now.
void Session::refused(Call &call, NfsStatus status, std::unique_ptr<rpc::Request> request) {
    const bool current = call.session == session_number_;
    spend(call, request->spent);
    switch (status) {
        case NfsStatus::delay:
            // It is being executed, on another connection perhaps; the same request will find its answer.
            call.doubtful = true;
            put_offs_.put_off(call.put_off, RecordKind::delay, server_.name());
            call.delayed = std::move(request);
            return wait(call, [this](Call &again) { send_again(again); });
        case NfsStatus::conn_not_bound_to_session:
            call.delayed = std::move(request);
            return bind_connection(call);
        case NfsStatus::badslot:
        case NfsStatus::bad_high_slot:
            leave_slot(call, &Slots::refused);
            if (current) slots_.cut(std::max(1U, call.slot));
            return restart(call);
        case NfsStatus::seq_misordered:
        case NfsStatus::seq_false_retry:
        case NfsStatus::retry_uncached_rep:
            leave_slot(call, &Slots::lose);
            call.repeated = call.repeated || call.doubtful;
            return restart(call);
        case NfsStatus::badsession:
        case NfsStatus::deadsession:
        case NfsStatus::stale_clientid:
        case NfsStatus::expired:
            call.repeated = call.repeated || call.doubtful;
            call.holds_slot = false;
            if (current) lose_session();
            return restart(call);
        case NfsStatus::rep_too_big_to_cache:
            leave_slot(call, &Slots::refused);
            return call.repeatable ? finish(call, to_status(status)) : repeat_unkept(call);
        default:
            leave_slot(call, &Slots::refused);
            return finish(call, to_status(status));
    }
}

void Session::executed(Call &call, Results &results, const rpc::Request &request) {
    if (std::exchange(call.completes, false)) {
        const bool declared = results.next(Op::reclaim_complete);
        const bool alone = std::exchange(call.only_completes, false);
        if (results.failure() == NfsStatus::delay) return failed(call, NfsStatus::delay);
        // Whatever else it says: it is declared, now or before.
        if (call.session == session_number_) must_complete_ = false;
        if (!declared || alone) return requeue(call);
    }
    if (call.read(results, request) && results.finished()) {
        put_offs_.answered(call.put_off, server_.name());
        if (!call.unfinished || !call.unfinished()) return finish(call, {});
        return wait(call, [this](Call &again) { requeue(again); });
    }
    if (results.failure() != NfsStatus::ok) return failed(call, results.failure());
    finish(call, {EIO, "the server's answer makes no sense"});
}

void Session::failed(Call &call, NfsStatus status) {
    if (status == NfsStatus::delay || status == NfsStatus::grace) {
        server_.trace().write(TraceLevel::detail, TraceComponent::nfs, [this, &call] {
            return in_context(call, {EBUSY, "the server is not ready, asking again"}).text();
        });
        const bool in_grace = status == NfsStatus::grace;
        put_offs_.put_off(call.put_off, in_grace ? RecordKind::grace : RecordKind::delay, server_.name());
        return wait(call, [this](Call &again) { requeue(again); });
    }
    put_offs_.answered(call.put_off, server_.name());
    // Executed on a connection that was lost, and the answer was none to be kept: what may be asked again is.
    if (status == NfsStatus::retry_uncached_rep) {
        call.repeated = true;
        return call.doubtful ? requeue(call) : restart(call);
    }
    if (status == NfsStatus::rep_too_big_to_cache && !call.repeatable) return repeat_unkept(call);
    // The first request was executed and its answer lost with the session.
    if (call.repeated && call.done_before != NfsStatus::ok && status == call.done_before) {
        if (call.found_done) call.found_done(call.first_sent);
        return finish(call, {});
    }
    if (call.rescue) {
        auto taken = take(call);
        const auto life = life_.watch();
        const bool rescued = taken->rescue(status, taken);
        if (life.expired()) return;
        if (rescued) return pump();
        running_.push_back(std::move(taken));
    }
    finish(call, to_status(status));
}

// A slot of an earlier session is nobody's any more.
void Session::leave_slot(Call &call, void (Slots::*how)(uint32_t)) {
    if (std::exchange(call.holds_slot, false) && call.session == session_number_) (slots_.*how)(call.slot);
}

// Takes time from a call's limit, of which a moment stays: a limit of nothing would be none.
void Session::spend(Call &call, rpc::Duration spent) {
    if (call.limit > rpc::Duration::zero()) call.limit = std::max(call.limit - spent, kMoment);
}

void Session::wait(Call &call, std::function<void(Call &)> then) {
    const rpc::Duration delay = call.wait;
    call.wait = std::min(delay * 2, server_.timing().jukebox_most);
    if (call.limit > rpc::Duration::zero() && call.limit <= delay)
        return finish(call, {ETIMEDOUT, "the server was not ready in all the time given"});
    spend(call, delay);
    call.timer->after(delay, [&call, then = std::move(then)] { then(call); });
    pump();
}

// The same request in the same slot, unless the session went meanwhile.
void Session::send_again(Call &call) {
    if (call.session != session_number_ || state_ == State::down) {
        call.delayed.reset();
        call.holds_slot = false;
        call.repeated = call.repeated || call.doubtful;
        return restart(call);
    }
    auto request = std::move(call.delayed);
    request->limit = call.limit;
    submit(call, std::move(request));
}

// Because the session did not carry it, which may not go on for ever.
void Session::restart(Call &call) {
    if (++call.restarts > kRestartsMaximum) return finish(call, {EIO, "the server does not keep the session"});
    requeue(call);
}

// The answer is larger than what the server keeps, which it says before it changes anything. Better asked for without
// being kept than not at all.
void Session::repeat_unkept(Call &call) {
    call.repeatable = true;
    requeue(call);
}

// As a new request, when its turn comes: in front of those that were asked later.
void Session::requeue(Call &call) {
    queue_.push_front(take(call));
    pump();
}

// Some server wants a connection to be bound in words, although using it does so (RFC 8881 section 2.10.3.1).
void Session::bind_connection(Call &call) {
    if (++call.restarts > kRestartsMaximum) return finish(call, to_status(NfsStatus::conn_not_bound_to_session));
    Compound compound(minor_);
    put_bind_connection(compound, session_);
    auto request = bare_request(Op::bind_conn_to_session, compound);
    request->authenticator = call.authenticator;
    request->limit = call.limit;
    request->owner = call.owner;
    request->done = [this, &call](const std::unique_ptr<rpc::Request> &) { send_again(call); };
    client_->submit(std::move(request));
}

Session::CallPointer Session::take(const Call &call) {
    const auto place = std::find_if(running_.begin(), running_.end(),
                                    [&call](const CallPointer &each) { return each.get() == &call; });
    assert(place != running_.end());
    auto taken = std::move(*place);
    running_.erase(place);
    return taken;
}

Status Session::in_context(const Call &call, const Status &status) const {
    return status.in(std::string(call.name)).in("server " + server_.name());
}

// done may do anything, the end of the last user included.
void Session::finish(Call &call, const Status &status) {
    const auto ended = take(call);
    const auto life = life_.watch();
    ended->done(status.ok() ? Status{} : in_context(*ended, status));
    if (!life.expired()) pump();
}

void Session::fail_all(const void *owner, const Status &status) {
    client_->drop(owner);
    std::vector<CallPointer> failed;
    for (auto &call : queue_)
        if (call->owner == owner) failed.push_back(std::move(call));
    std::erase(queue_, nullptr);
    for (auto &call : running_) {
        if (call->owner != owner) continue;
        leave_slot(*call, &Slots::lose);
        failed.push_back(std::move(call));
    }
    std::erase(running_, nullptr);
    for (const auto &call : failed)
        call->timer->cancel();
    for (const auto &call : failed)
        call->done(status);
}

bool Session::busy() const {
    return client_->busy() || (state_ == State::up && !slots_.any_free());
}

}  // namespace nfstdm::nfs4
