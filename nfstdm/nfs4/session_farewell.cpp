// SPDX-License-Identifier: Apache-2.0
// The end of a session. What it consists of is asked at once, which saves round trips: the server sees DESTROY_SESSION
// and DESTROY_CLIENTID one behind the other, and what is still to be closed in front of the former, in one request
// (RFC 8881 section 18.37.3).
#include <cerrno>
#include <utility>

#include "nfstdm/nfs4/session.h"

namespace nfstdm::nfs4 {

void Session::remove_user(StateHolder &user, DoneCompletion done) {
    users_.erase(&user);
    if (!users_.empty() || state_ == State::down || !identified_) {
        if (users_.empty()) make_failed({ECANCELED, "the server is no longer used"});
        if (users_.empty()) farewell_said();
        return loop_.soon([done = std::move(done)] { done({}); });
    }
    session_stays_ = state_ == State::up || state_ == State::reclaiming;
    begin_farewell(std::move(done));
    take_leave();
}

bool Session::can_end_with(const StateHolder &user, const LastWords &words) const {
    constexpr std::size_t kAround = 2;  // SEQUENCE, DESTROY_SESSION
    const bool is_alone = users_.size() == 1 && *users_.begin() == &user && queue_.empty() && running_.empty();
    return is_alone && state_ == State::up && !must_complete_ && slots_.any_free() &&
           words.operations + kAround <= sizes_.operations && words.authenticator == authenticator_;
}

void Session::end_with(const LastWords &words, DoneCompletion done) {
    const uint32_t slot = slots_.take().value();
    begin_farewell(std::move(done));
    session_stays_ = false;
    farewells_ = 1;
    ask(
        Op::destroy_session,
        [&](Compound &compound) {
            put_sequence(compound, {session_, slots_.sequence(slot), slot, slots_.highest(), false});
            words.put(compound);
            put_destroy_session(compound, session_);
        },
        [this, slot, read = words.read](Results &results) {
            SequenceReply reply;
            const bool executed = results.next(Op::sequence) && get_sequence(results.reader(), reply);
            if (executed)
                slots_.executed(slot);
            else
                slots_.lose(slot);
            words_refused_ = !executed || !read(results) || !results.next(Op::destroy_session);
            farewell_answered();
        });
    take_leave();
}

void Session::begin_farewell(DoneCompletion done) {
    timer_.cancel();
    client_->drop(this);
    state_ = State::down;
    farewell_ = std::move(done);
    client_is_busy_ = left_again_ = words_refused_ = false;
}

void Session::take_leave() {
    farewells_ += session_stays_ ? 2 : 1;
    if (session_stays_)
        ask(
            Op::destroy_session, [this](Compound &compound) { put_destroy_session(compound, session_); },
            [this](Results &results) {
                session_stays_ = !results.next(Op::destroy_session) && results.failure() == NfsStatus::delay;
                farewell_answered();
            });
    ask(
        Op::destroy_clientid, [this](Compound &compound) { put_destroy_clientid(compound, client_id_); },
        [this](Results &results) {
            const NfsStatus failure = results.next(Op::destroy_clientid) ? NfsStatus::ok : results.failure();
            client_is_busy_ = failure == NfsStatus::clientid_busy || failure == NfsStatus::delay;
            farewell_answered();
        });
}

// A server that met the end of the client first, or while it was at what stands in front of it, is asked once more: its
// administrator sees clients that are gone else, and after a restart it waits for them.
void Session::farewell_answered() {
    if (--farewells_ > 0) return;
    if (client_is_busy_ && words_refused_) return go_on_for_user();
    if (!client_is_busy_ || std::exchange(left_again_, true)) return farewell_said();
    take_leave();
}

// The session is as it was, or turns out to be lost with what is asked next.
void Session::go_on_for_user() {
    state_ = State::up;
    std::exchange(farewell_, nullptr)({EBUSY, "the server did not take everything in one request"});
}

void Session::farewell_said() {
    client_->drop(this);
    client_->close();
    farewells_ = 0;
    identified_ = false;
    state_lost_ = must_complete_ = session_stays_ = false;
    attempts_ = 0;
    contacted_ = false;
    const auto life = life_.watch();
    if (const auto done = std::exchange(farewell_, nullptr)) done({});
    if (!life.expired()) pump();
}

}  // namespace nfstdm::nfs4
