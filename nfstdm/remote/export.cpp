// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/remote/export.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

#include "nfstdm/remote/security.h"

namespace nfstdm::remote {

namespace {

// Nothing that is asked before an export is attached is for an owner alone: what may not be done by whoever asks is to
// ask from an ordinary port.
Status with_port_named(const Status &why) {
    if (why.cause().source != Cause::Source::nfs || why.number() != EPERM || geteuid() == 0) return why;
    return why.told_as(why.text() +
                       "; the server may want a source port below 1024: then ask it as root, or export with "
                       "\"insecure\"");
}

}  // namespace

Export::Export(Server &server, ServerExport share) : server_(server), share_(std::move(share)) {}

const std::string &Export::wanted() const {
    return wanted_security(server_.config(), share_);
}

Status Export::no_longer_used() const {
    return in_context({ECANCELED, "the export is no longer used"});
}

Status Export::not_attached_for(std::string_view operation) const {
    return in_context({ENOTCONN, std::string(operation) + ": the export is not attached"});
}

// --- attach

void Export::attach(Completion<FileHandle> done) {
    if (state_ == State::attached) {
        loop().soon([done = std::move(done), root = root_] { done(root); });
        return;
    }
    attaching_.push_back(std::move(done));
    if (state_ == State::attaching) return;
    state_ = State::attaching;
    life_.soon(loop(), [this] { begin(); });
}

void Export::begin() {
    if (state_ != State::attaching) return;
    if (!server_.problem().ok()) return not_attached(server_.problem());
    contact();
}

void Export::attached(const FileHandle &root, const std::string &how) {
    root_ = root;
    state_ = State::attached;
    end_attempt(Result<FileHandle>(root), "attached" + how);
}

void Export::not_attached(const Status &why) {
    state_ = State::detached;
    let_go();
    const Status told = with_port_named(why);
    end_attempt(Result<FileHandle>(told), "not attached: " + told.text());
}

void Export::end_attempt(const Result<FileHandle> &result, const std::string &words) {
    server_.trace().write(TraceLevel::notice, TraceComponent::mount,
                          [&] { return "server " + server_.name() + ": export " + share_.export_path + ": " + words; });
    for (const auto &done : std::exchange(attaching_, {}))
        done(result);
}

// --- detach

void Export::close() {
    const Status why = no_longer_used();
    const bool attaching = state_ == State::attaching;
    state_ = State::detached;
    end_all(why);
    if (attaching && !attaching_.empty()) not_attached(why);
    if (const auto done = std::exchange(leaving_, nullptr)) done(why);
}

void Export::leave(DoneCompletion done) {
    state_ = State::detached;
    leaving_ = std::move(done);
}

void Export::left() {
    if (const auto done = std::exchange(leaving_, nullptr)) done({});
}

void Export::leave_at_once(DoneCompletion done) {
    close();
    loop().soon([done = std::move(done)] { done({}); });
}

}  // namespace nfstdm::remote
