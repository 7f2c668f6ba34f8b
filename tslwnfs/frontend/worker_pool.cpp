// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/worker_pool.h"

#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <csignal>
#include <cstring>
#include <new>
#include <utility>

#include "platform/environment.h"
#include "tslwnfs/frontend/worker.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/terminal/interruption.h"
#include "tslwnfs/terminal/progress.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr unsigned kMostJobs = 32;
// What a job may have written ahead of its turn, before it has to wait.
constexpr std::size_t kWrittenAhead = std::size_t{256} << 10;

std::atomic<uint64_t> *shared_counter() {
    void *const memory =
        mmap(nullptr, sizeof(std::atomic<uint64_t>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return memory == MAP_FAILED ? nullptr : new (memory) std::atomic<uint64_t>(0);
}

std::string description_of(int status) {
    if (WIFSIGNALED(status)) return strsignal(WTERMSIG(status));
    return "status " + std::to_string(WEXITSTATUS(status));
}

WorkerPool::Result failed(const std::string &death) {
    WorkerPool::Result result;
    result.outcome.status = 1;
    result.death = death;
    return result;
}

// Directories that the caller holds open around a job, with their paths put into it.
std::vector<int> held_around(Job &job) {
    std::vector<int> descriptors;
    for (const std::string *path : {&job.source, &job.destination}) {
        const HeldDirectory *const held = held_directory_of(*path);
        if (held == nullptr || held->descriptor() < 0) continue;
        job.held.push_back(held->path());
        descriptors.push_back(held->descriptor());
    }
    return descriptors;
}

}  // namespace

Jobs jobs_at_once() {
    constexpr std::size_t kLongest = 2;  // digits
    const std::string text = platform_environment("TSLWNFS_JOBS", kLongest).value_or("");
    unsigned jobs = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), jobs);
    const bool usable = error == std::errc{} && end == text.data() + text.size() && jobs >= 1 && jobs <= kMostJobs;
    return usable ? Jobs{jobs, true} : Jobs{};
}

WorkerPool::WorkerPool(const Command &command, unsigned workers)
    : command_(command), most_(workers), bytes_(shared_counter()) {}

void WorkerPool::dismiss() {
    for (const auto &worker : workers_)
        worker->socket = {};
}

WorkerPool::~WorkerPool() {
    dismiss();
    for (const auto &worker : workers_)
        bury(*worker);
    if (bytes_ != nullptr) munmap(bytes_, sizeof *bytes_);
}

WorkerPool::Worker *WorkerPool::idle_worker() {
    const auto found = std::find_if(workers_.begin(), workers_.end(), [](const auto &worker) { return !worker->job; });
    return found == workers_.end() ? nullptr : found->get();
}

bool WorkerPool::has_room() {
    if (ends_) return false;
    return idle_worker() != nullptr || (workers_.size() < most_ && make_worker()) ||
           (receive(std::nullopt, 0) && !ends_ && idle_worker() != nullptr);
}

bool WorkerPool::make_worker() {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return false;
    auto worker = std::make_unique<Worker>();
    worker->socket = Descriptor(ends[0]);
    const Descriptor other(ends[1]);
    flush_output();
    worker->process = terminal::fork_companion();
    if (worker->process < 0) return false;
    if (worker->process == 0) {
        // What the others are told is not for this one, and it must not keep them from hearing of the end.
        for (auto &each : workers_)
            each->socket = {};
        worker->socket = {};
        if (bytes_ != nullptr) terminal::count_into(*bytes_);
        work(other.get(), command_);
    }
    workers_.push_back(std::move(worker));
    return true;
}

// A worker that died while it had nothing to do has failed nothing: another one takes the job.
WorkerPool::Ticket WorkerPool::start(const Job &given) {
    Job job = given;
    const std::vector<int> held = held_around(job);
    const std::string message = pack(job);
    const Ticket ticket = next_++;
    jobs_[ticket] = {};
    while (idle_worker() != nullptr || make_worker()) {
        Worker &worker = *idle_worker();
        if (send_message(worker.socket.get(), message, held)) {
            worker.job = ticket;
            return ticket;
        }
        kill(worker.process, SIGKILL);
        bury(worker);
    }
    jobs_[ticket].result = failed("there is no other");
    return ticket;
}

std::optional<WorkerPool::Result> WorkerPool::take(Ticket ticket) {
    const auto job = jobs_.find(ticket);
    if (!job->second.result) return std::nullopt;
    auto result = std::move(job->second.result);
    result->outcome.written = std::exchange(job->second.written, {});
    jobs_.erase(job);
    return result;
}

CapturedBytes WorkerPool::take_written(Ticket ticket) {
    return std::exchange(jobs_.at(ticket).written, {});
}

void WorkerPool::finish(Worker &worker, Result result) {
    Progress &job = jobs_.at(*worker.job);
    job.written.append(result.outcome.written);
    ends_ = ends_ || result.outcome.after == After::ends;
    job.result = std::move(result);
    worker.job.reset();
}

// A worker that died has failed its job; another one is made when there is more to do.
void WorkerPool::bury(Worker &worker) {
    int status = 0;
    const bool known = terminal::await_companion(worker.process, status) == worker.process;
    const std::string death = known ? description_of(status) : "nobody knows of what";
    if (worker.job) finish(worker, failed(death));
    if (worker.socket) std::erase_if(workers_, [&worker](const auto &each) { return each.get() == &worker; });
}

bool WorkerPool::is_known_message(Worker &worker, const std::string &message) {
    const std::string_view content = std::string_view(message).substr(1);
    if (message.front() == kLineMessage) {
        // Several workers may wait for one server.
        if (std::exchange(said_last_, content) != content) terminal::say(content, terminal::When::at_once);
        return true;
    }
    if (!worker.job) return false;
    CapturedBytes written;
    if (message.front() == kWrittenMessage && unpack(content, written)) {
        jobs_.at(*worker.job).written.append(written);
        return true;
    }
    Result result;
    if (message.front() != kOutcomeMessage || !unpack(content, result.outcome)) return false;
    finish(worker, std::move(result));
    return true;
}

void WorkerPool::receive_from(Worker &worker) {
    std::string message;
    std::vector<Descriptor> none;
    if (receive_message(worker.socket.get(), message, none) && is_known_message(worker, message)) return;
    kill(worker.process, SIGKILL);
    bury(worker);
}

// Gives false when there is nothing that could be waited for.
bool WorkerPool::receive(const std::optional<Ticket> &unbounded, int longest) {
    std::vector<pollfd> sockets;
    std::vector<Worker *> asked;
    for (const auto &worker : workers_) {
        if (!worker->job) continue;
        if (worker->job != unbounded && jobs_.at(*worker->job).written.size() > kWrittenAhead) continue;
        sockets.push_back({worker->socket.get(), POLLIN, 0});
        asked.push_back(worker.get());
    }
    if (sockets.empty()) return false;
    if (poll(sockets.data(), sockets.size(), longest) <= 0) return true;
    for (std::size_t i = 0; i < sockets.size(); ++i)
        if (sockets[i].revents != 0) receive_from(*asked[i]);
    return true;
}

void WorkerPool::wait_for(Ticket ticket) {
    receive(ticket, terminal::is_open() ? static_cast<int>(terminal::FilesProgress::kInterval.count()) : -1);
}

// What is written now nobody reads.
void WorkerPool::drain() {
    do {
        for (auto &[ticket, job] : jobs_)
            job.written = {};
    } while (receive(std::nullopt, -1));
}

uint64_t WorkerPool::bytes() const {
    return bytes_ == nullptr ? 0 : bytes_->load();
}
