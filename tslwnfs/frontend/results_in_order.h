// SPDX-License-Identifier: Apache-2.0
// The results of many jobs in the order of the jobs, while those behind are under way in the workers.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <string_view>

#include "tslwnfs/frontend/worker_pool.h"
#include "tslwnfs/terminal/progress.h"

class ResultsInOrder {
  public:
    using JobOf = std::function<Job(std::size_t)>;

    // The jobs from a first one up to the number of all, each made when a worker has time for it. shown: what a person
    // is told that they are. The pool must outlive the object.
    ResultsInOrder(WorkerPool &pool, std::size_t first, std::size_t all, JobOf job_of, std::string_view shown);

    // Goes on to the next job; false when there is no worker for it, and the caller has to do without.
    bool next();

    // Its result. What the job writes meanwhile is delivered.
    WorkerPool::Result wait();

  private:
    void feed();

    WorkerPool &pool_;
    const std::size_t all_;
    const JobOf job_of_;
    terminal::FilesProgress progress_;
    const uint64_t bytes_before_;
    std::size_t turn_;     // behind the job that was gone on to
    std::size_t started_;  // behind those that were given to a worker, or left to the caller
    std::deque<WorkerPool::Ticket> tickets_;
};
