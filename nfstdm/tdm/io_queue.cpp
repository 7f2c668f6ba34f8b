// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/io_queue.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <unordered_set>
#include <utility>

#include "nfstdm/base/scoped.h"
#include "nfstdm/tdm/public_number.h"

namespace nfstdm {
namespace {

// Far less than the windows last: at 4 GB/s some 400 KB go by.
constexpr auto kServeInterval = std::chrono::microseconds(100);

}  // namespace

// ---- submitting

Status IoQueue::check(const TdmIoRequest *request) const {
    if (request == nullptr) return {EINVAL, "no request"};
    if (pending_.contains(request)) return {EBUSY, "the request is under way already"};
    if (request->operation != TDM_IO_READ && request->operation != TDM_IO_WRITE)
        return {EINVAL, "operation " + std::to_string(request->operation) + " is neither a read nor a write"};
    if (request->buffer == nullptr && request->count != 0) return {EINVAL, "no buffer"};
    if (request->offset > std::numeric_limits<uint64_t>::max() - request->count)
        return {EFBIG, "offset " + std::to_string(request->offset) + " is out of range"};
    if (files_.find(request->file) == nullptr)
        return {EBADF, "no open file has the identifier " + std::to_string(request->file)};
    return {};
}

Status IoQueue::submit(Requests requests) {
    std::unordered_set<const TdmIoRequest *> given;
    for (const TdmIoRequest *request : requests) {
        if (Status refusal = check(request); !refusal.ok()) return refusal;
        if (!given.insert(request).second) return {EINVAL, "a request is given twice"};
    }
    for (TdmIoRequest *request : requests)
        start(*request);
    return {};
}

void IoQueue::start(TdmIoRequest &request) {
    auto pending = std::make_shared<Pending>();
    pending->request = &request;
    pending->file = request.file;
    pending_[&request] = pending;
    request.status = 0;
    OpenFile &file = *files_.find(request.file);
    const std::span data(static_cast<std::byte *>(request.buffer), request.count);
    if (request.operation == TDM_IO_WRITE) return complete(*pending, file.write(request.offset, data));
    files_.make_room_to_read(file);
    file.read(request.offset, data, [pending](Status status) { complete(*pending, std::move(status)); });
}

void IoQueue::complete(Pending &pending, Status status) {
    pending.request->status = public_number(status);
    pending.status = std::move(status);
    pending.completed = true;
}

// ---- collecting

Status IoQueue::reap(Requests requests, uint32_t timeout, uint32_t &count) {
    for (const TdmIoRequest *request : requests)
        if (!pending_.contains(request)) return {EINVAL, "a request that was not submitted cannot be collected"};
    serve_connections(requests);
    recover_files();
    wait_for(requests, timeout);
    count = 0;
    Status first;
    for (const TdmIoRequest *request : requests) {
        const auto found = pending_.find(request);
        if (found == pending_.end() || !found->second->completed) continue;
        if (first.ok()) first = found->second->status;
        pending_.erase(found);
        ++count;
    }
    return first;
}

bool IoQueue::all_completed(Requests requests) const {
    return std::ranges::all_of(requests, [this](const auto *request) { return pending_.at(request)->completed; });
}

// Keeps the connections busy also while everything asked for is there already, yet does not ask the system about them
// for every small request.
void IoQueue::serve_connections(Requests requests) {
    const auto now = EventLoop::Clock::now();
    if (all_completed(requests) && now - served_ < kServeInterval) return;
    served_ = now;
    loop_.poll_once();
}

// Gives reads that met a stale handle their second try.
bool IoQueue::recover_files() {
    bool recovered = false;
    for (const auto &[request, pending] : pending_) {
        OpenFile *file = pending->completed ? nullptr : files_.find(pending->file);
        if (file == nullptr || !file->needs_recovery()) continue;
        file->recover();
        recovered = true;
    }
    return recovered;
}

void IoQueue::wait_for(Requests requests, uint32_t timeout) {
    bool expired = timeout == 0;
    ScopedTimer timer(loop_);
    if (timeout != 0 && timeout != TDM_WAIT_FOREVER)
        timer.after(std::chrono::milliseconds(timeout), [&expired] { expired = true; });
    const auto stale = [this] {
        return std::ranges::any_of(pending_, [this](const auto &item) {
            const OpenFile *file = item.second->completed ? nullptr : files_.find(item.second->file);
            return file != nullptr && file->needs_recovery();
        });
    };
    do {
        loop_.run_until([&] { return expired || all_completed(requests) || stale(); });
    } while (recover_files());
}

void IoQueue::complete_all() {
    do {
        loop_.run_until([this] {
            return std::ranges::all_of(pending_, [this](const auto &item) {
                const OpenFile *file = files_.find(item.second->file);
                return item.second->completed || file == nullptr || file->needs_recovery();
            });
        });
    } while (recover_files());
    pending_.clear();
}

}  // namespace nfstdm
