// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/server_copy.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "nfstdm/nfs4/status_table.h"

namespace nfstdm::nfs4 {

namespace {

// How often a copy may meet a server that has lost its state, or what it had copied.
constexpr unsigned kCopyAttemptsMaximum = 8;
// A server that forgets copies in the background as they end tells nobody how: it is not asked for many of them.
constexpr unsigned kDisappearancesMaximum = 2;
// Between questions whether a copy in the background is over, at first.
constexpr rpc::Duration kFirstLook = std::chrono::milliseconds(5);

bool is_unknown(NfsStatus status) {
    return status == NfsStatus::notsupp || status == NfsStatus::op_illegal;
}

// The server will not do it between these files, or not with this range.
bool is_declined(NfsStatus status) {
    return is_unknown(status) || status == NfsStatus::xdev || status == NfsStatus::inval ||
           status == NfsStatus::wrong_type || status == NfsStatus::union_notsupp ||
           status == NfsStatus::offload_denied || status == NfsStatus::offload_no_reqs;
}

Status not_offered() {
    return {ENOTSUP, "COPY: the server does not copy by itself here"};
}

}  // namespace

ServerCopy::ServerCopy(File source, File destination, const CopyRange &range, Means means, Completion<CopyReply> done)
    : source_(source), destination_(destination), range_(range), means_(std::move(means)), done_(std::move(done)) {}

void ServerCopy::begin() {
    open_files();
}

void ServerCopy::open_files() {
    source_.opens.use(source_.handle, kShareAccessRead, [self = shared_from_this()](const Status &opened) {
        if (!opened.ok()) return self->done_(opened);
        self->destination_.opens.use(self->destination_.handle, kShareAccessWrite, [self](const Status &also_opened) {
            if (!also_opened.ok()) return self->done_(also_opened);
            self->choose();
        });
    });
}

void ServerCopy::choose() {
    if (means_.abilities.clones) return clone();
    if (means_.abilities.copies) return copy();
    done_(not_offered());
}

// A call about both files, ended by an operation and what belongs to it.
void ServerCopy::ask(Op op, const Put &put, Read read, void (ServerCopy::*then)()) {
    auto call = means_.new_call(row_of(op).name);
    call->put = [self = shared_from_this(), put](Compound &compound) {
        self->source_state_ = self->source_.opens.state(self->source_.handle);
        self->destination_state_ = self->destination_.opens.state(self->destination_.handle);
        put_putfh(compound, self->source_.handle);
        put_plain(compound, Op::savefh);
        put_putfh(compound, self->destination_.handle);
        put(compound, {self->source_state_, self->destination_state_, self->range_.source_offset,
                       self->range_.destination_offset, self->range_.count});
    };
    call->read = [read = std::move(read)](Results &results, const rpc::Request &) {
        return results.next(Op::putfh) && results.next(Op::savefh) && results.next(Op::putfh) && read(results);
    };
    call->rescue = [self = shared_from_this(), op](NfsStatus status, const std::unique_ptr<Call> &) {
        return self->refused(op, status);
    };
    call->done = [self = shared_from_this(), then](const Status &status) {
        if (!status.ok()) return self->done_(status);
        ((*self).*then)();
    };
    if (op == Op::offload_status) {
        call->wait = kFirstLook;
        call->unfinished = [self = shared_from_this()] { return !self->progress_.outcome.has_value(); };
    }
    call->repeatable = true;
    means_.start(std::move(call));
}

// Whether there is another way than to fail.
bool ServerCopy::refused(Op op, NfsStatus status) {
    if (op == Op::offload_status && state_is_lost(status) && ++disappearances_ == kDisappearancesMaximum) {
        done_(not_offered());
        return true;
    }
    if (state_is_lost(status) && ++attempts_ < kCopyAttemptsMaximum) {
        source_.opens.lost(source_.handle, source_state_);
        destination_.opens.lost(destination_.handle, destination_state_);
        open_files();
        return true;
    }
    Abilities &abilities = means_.abilities;
    if (op == Op::clone && is_declined(status)) {
        if (is_unknown(status)) abilities.clones = false;
        if (abilities.copies)
            copy();
        else
            done_(not_offered());
        return true;
    }
    if (op != Op::copy || !is_declined(status)) return false;
    if (status == NfsStatus::offload_no_reqs && std::exchange(abilities.copies_at_once, false)) {
        copy();
        return true;
    }
    if (is_unknown(status)) abilities.copies = false;
    done_(not_offered());
    return true;
}

void ServerCopy::clone() {
    const auto put = [](Compound &compound, const CopyArguments &arguments) {
        put_clone(compound, arguments);
        put_commit(compound);
    };
    const auto read = [this](Results &results) {
        return results.next(Op::clone) && results.next(Op::commit) && get_commit(results.reader(), commit_);
    };
    answer_ = {std::nullopt, range_.count, Stability::file_sync, 0};
    ask(Op::clone, put, read, &ServerCopy::committed);
}

void ServerCopy::copy() {
    const auto put = [this](Compound &compound, CopyArguments arguments) {
        arguments.count = std::min(arguments.count, kPart);
        put_copy(compound, arguments, means_.abilities.copies_at_once);
        put_commit(compound);
    };
    const auto read = [this](Results &results) {
        answer_ = {};
        return results.next(Op::copy) && get_copy(results.reader(), answer_) && results.next(Op::commit) &&
               get_commit(results.reader(), commit_);
    };
    ask(Op::copy, put, read, &ServerCopy::copied);
}

void ServerCopy::copied() {
    if (answer_.going_on) return watch();
    committed();
}

// The server goes on in the background.
void ServerCopy::watch() {
    const auto put = [this](Compound &compound, const CopyArguments &) {
        put_offload_status(compound, *answer_.going_on);
    };
    const auto read = [this](Results &results) {
        progress_ = {};
        return results.next(Op::offload_status) && get_offload_status(results.reader(), progress_);
    };
    ask(Op::offload_status, put, read, &ServerCopy::commit);
}

void ServerCopy::commit() {
    if (*progress_.outcome != NfsStatus::ok) return try_again(to_status(*progress_.outcome).in("COPY"));
    answer_.count = progress_.count;
    answer_.committed = Stability::unstable;
    const auto put = [](Compound &compound, const CopyArguments &) { put_commit(compound); };
    const auto read = [this](Results &results) {
        return results.next(Op::commit) && get_commit(results.reader(), commit_);
    };
    ask(Op::commit, put, read, &ServerCopy::committed);
}

// A server that restarted in between may have lost what it had copied.
bool ServerCopy::is_durable() const {
    return answer_.committed == Stability::file_sync || answer_.verifier == commit_.verifier;
}

void ServerCopy::committed() {
    if (!is_durable()) return try_again({EIO, "COPY: the server keeps losing what it copied"});
    if (answer_.count == 0) return done_(not_offered());
    if (answer_.count > range_.count) return done_(Status{EIO, "COPY: the server copied more than it was asked for"});
    done_(CopyReply{answer_.count});
}

void ServerCopy::try_again(const Status &failure) {
    if (++attempts_ >= kCopyAttemptsMaximum) return done_(failure);
    open_files();
}

}  // namespace nfstdm::nfs4
