// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/opens.h"

#include <cassert>
#include <cerrno>
#include <utility>

namespace nfstdm::nfs4 {

namespace {

// A call that opens a file by its handle; the state is put where it is told.
void make_open(Call &call, const FileHandle &file, const OpenOwner &owner, uint32_t access, Claim claim,
               const std::shared_ptr<StateId> &state) {
    call.put = [file, owner, access, claim](Compound &compound) {
        put_putfh(compound, file);
        put_open_handle(compound, owner, access, claim);
    };
    call.read = [state](Results &results, const rpc::Request &) {
        OpenReply reply;
        if (!results.next(Op::putfh) || !results.next(Op::open) || !get_open(results.reader(), reply)) return false;
        *state = reply.state;
        return true;
    };
}

Status not_held() {
    return {ECANCELED, "OPEN: the file is not wanted any more"};
}

}  // namespace

void Opens::hold(const FileHandle &file, uint32_t access) {
    File &entry = files_[file];
    ++entry.holders;
    entry.wanted |= access;
}

// What is being opened just now is closed when that is known to have succeeded.
void Opens::release(const FileHandle &file) {
    const auto found = files_.find(file);
    assert(found != files_.end() && found->second.holders > 0);
    File &entry = found->second;
    if (--entry.holders > 0 || entry.opening) return;
    if (entry.open) close_soon({file, entry.state});
    files_.erase(found);
}

// With the loop's next turn, or in front of what is asked next. Whoever leaves before that closes it with the session.
void Opens::close_soon(Left left) {
    left_.push_back(left);
    closing_soon_.after({}, [this] { close_left(); });
}

void Opens::close_left() {
    for (const Left &each : take_left())
        send_close(each);
}

std::vector<Opens::Left> Opens::take_left() {
    closing_soon_.cancel();
    return std::exchange(left_, {});
}

bool Opens::is_open(const FileHandle &file) const {
    const auto found = files_.find(file);
    return found != files_.end() && (found->second.open || found->second.opening);
}

bool Opens::is_being_opened(const FileHandle &file) const {
    const auto found = files_.find(file);
    return found != files_.end() && found->second.opening;
}

void Opens::use(const FileHandle &file, uint32_t access, DoneCompletion ready) {
    const auto found = files_.find(file);
    if (found == files_.end()) return ready(not_held());
    File &entry = found->second;
    if (entry.open && !entry.opening && (access & ~entry.access) == 0) return ready({});
    entry.waiters.push_back({access, std::move(ready)});
    if (!entry.opening) open(file, access | entry.access | entry.wanted);
}

// What is open already is opened for more under the same owner (RFC 8881 section 18.16.3).
OpenOwner Opens::begin_open(File &entry) {
    entry.opening = true;
    if (!entry.open) entry.owner = session_.new_open_owner();
    return entry.owner;
}

// Two executions end like one, as the owner is the same, and the data need not be kept by the server.
void Opens::open_with(const FileHandle &file, uint32_t access, Behind behind) {
    const auto found = files_.find(file);
    if (found == files_.end()) return behind.done(not_held());
    access |= found->second.wanted;
    auto call = new_call_("OPEN");
    auto state = std::make_shared<StateId>();
    make_open(*call, file, begin_open(found->second), access, Claim::file_handle, state);
    call->put = [open = std::move(call->put), put = std::move(behind.put)](Compound &compound) {
        open(compound);
        put(compound);
    };
    auto opened = std::make_shared<bool>(false);
    call->read = [opened, open = std::move(call->read), read = std::move(behind.read)](Results &results,
                                                                                       const rpc::Request &request) {
        *opened = open(results, request);
        return *opened && read(results, request);
    };
    call->landing = behind.landing;
    call->repeatable = true;
    call->done = [this, file, access, state, opened, done = std::move(behind.done),
                  alone = std::move(behind.alone)](const Status &status) {
        open_ended(file, access, *state, *opened ? Status{} : status);
        if (*opened && !status.ok()) return alone();
        done(status);
    };
    start_(std::move(call));
}

void Opens::open(const FileHandle &file, uint32_t access) {
    auto call = new_call_("OPEN");
    auto state = std::make_shared<StateId>();
    make_open(*call, file, begin_open(files_.at(file)), access, Claim::file_handle, state);
    call->done = [this, file, access, state](const Status &status) { open_ended(file, access, *state, status); };
    start_(std::move(call));
}

void Opens::open_ended(const FileHandle &file, uint32_t access, const StateId &state, const Status &status) {
    const auto found = files_.find(file);
    if (found == files_.end()) return;
    File &entry = found->second;
    entry.opening = false;
    const auto waiters = std::exchange(entry.waiters, {});
    if (status.ok()) {
        entry.open = true;
        entry.state = state;
        entry.access = access;
    }
    if (entry.holders == 0) {
        if (entry.open) send_close({file, entry.state});
        files_.erase(found);
    }
    for (const Waiter &waiter : waiters) {
        if (status.ok())
            use(file, waiter.access, waiter.ready);
        else
            waiter.ready(status);
    }
}

StateId Opens::state(const FileHandle &file, uint32_t access) const {
    const auto found = files_.find(file);
    const bool fits = found != files_.end() && found->second.open && (access & ~found->second.access) == 0;
    return fits ? found->second.state.latest() : StateId::anonymous();
}

void Opens::opened(const FileHandle &file, const OpenOwner &owner, uint32_t access, const StateId &state) {
    File &entry = files_.at(file);
    if (entry.open) send_close({file, entry.state});
    entry.owner = owner;
    entry.access = access;
    entry.state = state;
    entry.open = true;
}

void Opens::lost(const FileHandle &file, const StateId &state) {
    const auto found = files_.find(file);
    if (found == files_.end() || found->second.state.other != state.other) return;
    found->second.open = false;
}

StateId Opens::take(const FileHandle &file) {
    const StateId state = this->state(file);
    if (const auto found = files_.find(file); found != files_.end()) found->second.forget();
    return state;
}

void Opens::close_behind(const FileHandle &file, const StateId &state) {
    if (state != StateId::anonymous()) send_close({file, state});
}

void Opens::send_close(const Left &left) {
    auto call = new_call_("CLOSE");
    call->owner = this;
    call->put = [left](Compound &compound) { put_closing(compound, left); };
    call->read = [](Results &results, const rpc::Request &) { return get_closing(results); };
    // Whatever the server says: what it does not know is not open.
    call->done = [this](const Status &) { close_answered(); };
    ++closing_;
    start_(std::move(call));
}

void Opens::close_answered() {
    if (--closing_ == 0) all_are_closed();
}

void Opens::all_are_closed() {
    if (const auto done = std::exchange(all_closed_, nullptr)) done({});
}

void Opens::put_closing(Compound &compound, const Left &left) {
    put_putfh(compound, left.file);
    put_close(compound, left.state.latest());
}

bool Opens::get_closing(Results &results) {
    return results.next(Op::putfh) && results.next(Op::close) && get_close(results.reader());
}

void Opens::close_all(DoneCompletion done) {
    auto files = take_left();
    for (const auto &[file, entry] : files_)
        if (entry.open) files.push_back({file, entry.state});
    forget_all();
    if (files.empty() && closing_ == 0) return done({});
    all_closed_ = std::move(done);
    const auto close_each = [this, files] {
        for (const Left &each : files)
            send_close(each);
    };
    const auto words = closing_of(files);
    if (closing_ > 0 || !session_.can_end_with(*this, words)) return close_each();
    session_.end_with(words, [this, close_each](const Status &ended) { ended.ok() ? all_are_closed() : close_each(); });
}

Session::LastWords Opens::closing_of(const std::vector<Left> &files) const {
    Session::LastWords words;
    words.operations = 2 * files.size();
    words.authenticator = new_call_("CLOSE")->authenticator;
    words.put = [files](Compound &compound) {
        for (const Left &each : files)
            put_closing(compound, each);
    };
    words.read = [count = files.size()](Results &results) {
        for (std::size_t i = 0; i < count; ++i)
            if (!get_closing(results)) return false;
        return true;
    };
    return words;
}

void Opens::clear() {
    forget_all();
    take_left();
    closing_ = 0;
    all_closed_ = nullptr;
}

// What is held stays held, and is opened again when it is used again.
void Opens::forget_all() {
    std::erase_if(files_, [](const auto &item) { return item.second.holders == 0; });
    for (auto &[file, entry] : files_)
        entry.forget();
}

void Opens::File::forget() {
    access = 0;
    open = false;
    opening = false;
    waiters.clear();
}

std::vector<std::unique_ptr<Call>> Opens::reclaim() {
    std::vector<std::unique_ptr<Call>> calls;
    for (auto &[file, entry] : files_) {
        if (!std::exchange(entry.open, false)) continue;
        auto call = new_call_("OPEN");
        auto state = std::make_shared<StateId>();
        make_open(*call, file, entry.owner, entry.access, Claim::previous, state);
        call->done = [this, file = file, state](const Status &status) {
            const auto found = files_.find(file);
            if (found == files_.end() || !status.ok() || found->second.opening) return;
            found->second.state = *state;
            found->second.open = true;
        };
        calls.push_back(std::move(call));
    }
    return calls;
}

}  // namespace nfstdm::nfs4
