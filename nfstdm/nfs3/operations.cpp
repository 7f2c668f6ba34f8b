// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/operations.h"

#include <algorithm>
#include <cassert>
#include <cerrno>

#include "nfstdm/nfs3/status_table.h"

namespace nfstdm::nfs3 {

Operations::~Operations() {
    fail_all({ECANCELED, "the export is no longer used"});
}

void Operations::use(rpc::Client *client) {
    assert(running_.empty());
    client_ = client;
}

void Operations::start(std::unique_ptr<Operation> operation, std::unique_ptr<rpc::Request> request) {
    Operation &started = *operation;
    started.self_ = running_.insert(running_.end(), std::move(operation));
    started.waits_ = timing_.jukebox_first;
    request->name = started.row_.name;
    request->results_maximum += started.row_.results_maximum;
    request->owner = this;
    submit(started, std::move(request));
}

void Operations::submit(Operation &operation, std::unique_ptr<rpc::Request> request) {
    request->done = [this, &operation](std::unique_ptr<rpc::Request> done) { answered(operation, std::move(done)); };
    client_->submit(std::move(request));
}

void Operations::answered(Operation &operation, std::unique_ptr<rpc::Request> request) {
    if (!operation.repeated_ && request->sends > 1) {
        operation.repeated_ = true;
        operation.first_sent_ = request->first_sent;
    }
    if (!request->status.ok()) return finish(operation, request->status);
    bool not_ready = false;
    Status status = judge(operation, *request, not_ready);
    if (not_ready) return wait(operation, std::move(request));
    put_offs_.answered(operation.put_off_, client_->config().server);
    finish(operation, std::move(status));
}

// What an answer means; not_ready says that it is none yet.
Status Operations::judge(Operation &operation, const rpc::Request &request, bool &not_ready) const {
    xdr::Reader reader(request.results());
    uint32_t number = 0;
    const bool got = reader.get_u32(number);
    const auto answer = static_cast<NfsStatus>(number);
    if (got && answer == NfsStatus::ok && operation.read(reader, request) && reader.finished()) return {};
    if (!got || answer == NfsStatus::ok) return in_context(operation, {EIO, "the server's answer makes no sense"});
    not_ready = answer == NfsStatus::jukebox;
    // The first request may have been executed and its answer lost.
    if (operation.repeated_ && !operation.row_.repeatable && answer == operation.row_.done_before) {
        operation.found_done(operation.first_sent_);
        return {};
    }
    return in_context(operation, to_status(number));
}

// Asks again after a while, as a new request: a server that remembers answers would repeat the old one to the old xid.
void Operations::wait(Operation &operation, std::unique_ptr<rpc::Request> request) {
    const rpc::Duration delay = operation.waits_;
    operation.waits_ = std::min(delay * 2, timing_.jukebox_most);
    if (request->limit > rpc::Duration::zero()) {
        request->limit -= request->spent + delay;
        if (request->limit <= rpc::Duration::zero())
            return finish(operation,
                          in_context(operation, {ETIMEDOUT, "the server was not ready in all the time given"}));
    }
    trace_.write(TraceLevel::detail, TraceComponent::nfs, [this, &operation] {
        return in_context(operation, {EBUSY, "the server is not ready, asking again"}).text();
    });
    put_offs_.put_off(operation.put_off_, RecordKind::delay, client_->config().server);
    operation.waiting_ = std::move(request);
    operation.timer_.after(delay, [this, &operation] { submit(operation, std::move(operation.waiting_)); });
}

Status Operations::in_context(const Operation &operation, const Status &status) const {
    return status.in(std::string(operation.row_.name)).in("server " + client_->config().server);
}

void Operations::finish(Operation &operation, Status status) {
    const auto finished = std::move(*operation.self_);
    running_.erase(operation.self_);
    finished->complete(std::move(status));
}

void Operations::fail_all(const Status &status) {
    if (client_ != nullptr) client_->drop(this);
    auto failed = std::move(running_);
    running_.clear();
    for (const auto &operation : failed)
        operation->timer_.cancel();
    for (const auto &operation : failed)
        operation->complete(status);
}

}  // namespace nfstdm::nfs3
