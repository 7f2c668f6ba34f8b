// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/results_in_order.h"

#include <utility>

#include "tslwnfs/terminal/screen.h"

ResultsInOrder::ResultsInOrder(WorkerPool &pool, std::size_t first, std::size_t all, JobOf job_of,
                               std::string_view shown)
    : pool_(pool),
      all_(all),
      job_of_(std::move(job_of)),
      progress_(shown, all),
      bytes_before_(pool.bytes()),
      turn_(first),
      started_(first) {}

void ResultsInOrder::feed() {
    constexpr std::size_t kAhead = 128;  // jobs that are begun ahead of their turn, at most
    while (started_ < all_ && started_ < turn_ + kAhead && pool_.has_room())
        tickets_.push_back(pool_.start(job_of_(started_++)));
}

bool ResultsInOrder::next() {
    feed();
    if (tickets_.empty()) ++started_;
    ++turn_;
    terminal::erase();
    return !tickets_.empty();
}

WorkerPool::Result ResultsInOrder::wait() {
    const WorkerPool::Ticket ticket = tickets_.front();
    tickets_.pop_front();
    auto result = pool_.take(ticket);
    while (!result) {
        progress_.at(turn_ - 1, pool_.bytes() - bytes_before_);
        pool_.wait_for(ticket);
        const CapturedBytes written = pool_.take_written(ticket);
        result = pool_.take(ticket);
        if (result && result->outcome.after == After::undone) break;
        if (written.size() != 0) terminal::erase();
        deliver(written);
        feed();
    }
    terminal::erase();
    return std::move(*result);
}
