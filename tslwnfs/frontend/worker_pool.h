// SPDX-License-Identifier: Apache-2.0
// Processes that run a command on one file each at a time, on behalf of the process in front.
//
// Forked, for everything that a command needs is there then, and each gets a session of its own with the servers. What
// a worker writes comes back with the outcome, so that the process in front gives it out in the order of the files. A
// worker ends when the process in front does, however that ends.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/descriptor.h"
#include "tslwnfs/frontend/command_table.h"
#include "tslwnfs/frontend/worker_records.h"
#include "tslwnfs/output/capture.h"

// How many files may be under way at once: what TSLWNFS_JOBS asks for, and 8 when it asks for nothing that can be had.
struct Jobs {
    unsigned number = 8;
    bool asked_for = false;
};
Jobs jobs_at_once();

class WorkerPool {
  public:
    using Ticket = uint64_t;

    struct Result {
        Outcome outcome;
        std::string death;  // what ended the worker, if it died
    };

    // The command must outlive the object. No process is made yet.
    WorkerPool(const Command &command, unsigned workers);
    // Waits until the workers have left their servers.
    ~WorkerPool();
    WorkerPool(const WorkerPool &) = delete;
    WorkerPool &operator=(const WorkerPool &) = delete;

    // True when a worker has nothing to do, or can be made. Never again once a job has ended the run.
    bool has_room();
    // Gives a job to a worker; has_room() held. Tickets count up.
    Ticket start(const Job &job);

    // The result of a job, when it is there; that of each is taken once.
    std::optional<Result> take(Ticket ticket);
    // What a job has written so far, beyond what comes with its outcome.
    CapturedBytes take_written(Ticket ticket);

    // Waits until something happened, or for a while if somebody watches. Jobs that write much wait for their turn, but
    // for this one's.
    void wait_for(Ticket ticket);
    // Waits until nothing is under way.
    void drain();

    // There is no other job: each worker leaves its servers and ends, while this process goes on.
    void dismiss();

    // Bytes that the jobs have transferred, so far.
    uint64_t bytes() const;

  private:
    struct Worker {
        pid_t process = 0;
        Descriptor socket;
        std::optional<Ticket> job;  // under way
    };
    struct Progress {
        CapturedBytes written;
        std::optional<Result> result;
    };

    Worker *idle_worker();
    bool make_worker();
    bool receive(const std::optional<Ticket> &unbounded, int longest);
    void receive_from(Worker &worker);
    bool is_known_message(Worker &worker, const std::string &message);
    void finish(Worker &worker, Result result);
    void bury(Worker &worker);

    const Command &command_;
    const unsigned most_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::map<Ticket, Progress> jobs_;
    Ticket next_ = 0;
    bool ends_ = false;
    std::string said_last_;         // of lines that are said at once
    std::atomic<uint64_t> *bytes_;  // shared with the workers; null when there is no memory for it
};
