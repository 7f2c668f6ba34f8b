// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/unfinished_destination.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "include/tdm.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/transfer.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

// A server that failed so is not asked for more: it would be waited for just as long.
bool is_out_of_reach(uint32_t status) {
    switch (status) {
        case ECONNREFUSED:
        case ECONNRESET:
        case EHOSTUNREACH:
        case ENETUNREACH:
        case ETIMEDOUT:
            return true;
        default:
            return false;
    }
}

}  // namespace

UnfinishedDestination::UnfinishedDestination(const DestinationFile &destination, uint64_t size)
    : destination_(destination), file_(destination.path.view(), size, [this] { return settle(); }) {}

UnfinishedDestination::~UnfinishedDestination() {
    if (!ended_) terminal::UnfinishedFile::note();
}

void UnfinishedDestination::show_progress(std::string_view name, uint64_t begin, uint64_t total) {
    begin_ = begin;
    progress_.emplace(name, total);
}

void UnfinishedDestination::at(uint64_t end) {
    terminal::count_bytes(end - std::exchange(end_, end));
    terminal::UnfinishedFile::at(end);
    // A server that does not answer in time is left: the interruption then ends the program from outside.
    if (const int signal = terminal::UnfinishedFile::interruption(); signal != 0) {
        terminal::UnfinishedFile::tell();
        terminal::UnfinishedFile::end_program(signal);
    }
    if (progress_ && progress_->is_due()) progress_->at(std::max(taken(), begin_) - begin_);
}

void UnfinishedDestination::wait_for_server(uint64_t end) {
    constexpr uint32_t kStep = 100;  // milliseconds
    at(end);
    uint64_t taken = 0;
    while (!destination_.local && written_so_far(destination_.info.file, kStep, taken) == 0 && taken < end)
        at(end);
    progress_.reset();
}

// Of the bytes that were given away, up to where the server has them, as far as the library tells.
uint64_t UnfinishedDestination::taken() const {
    uint64_t end = end_;
    if (!destination_.local && written_so_far(destination_.info.file, 0, end) != 0) return end_;
    return std::min(end, end_);
}

std::optional<uint64_t> UnfinishedDestination::settle() const {
    if (!destination_.local) return settle_remote();
    FILE *const stream = destination_.stream.get();
    struct stat status;
    if (stream == nullptr || std::fflush(stream) != 0 || fstat(fileno(stream), &status) != 0) return {};
    return S_ISREG(status.st_mode) ? std::min(end_, static_cast<uint64_t>(status.st_size)) : end_;
}

// The reason is known; what is tried now must not take its place.
std::optional<uint64_t> UnfinishedDestination::settle_remote() const {
    const terminal::AskedBesides besides;
    const uint32_t status = storage_barrier();
    if (is_out_of_reach(status)) return {};
    uint64_t end = end_;
    const bool known = written_so_far(destination_.info.file, 0, end) == 0;
    if (!known && status != 0) return {};
    end = std::min(end, end_);
    if (destination_.created) static_cast<void>(tdm_resize(ctx, destination_.info.file, end));
    return end;
}
