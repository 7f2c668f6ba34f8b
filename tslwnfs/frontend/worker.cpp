// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/worker.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <new>
#include <utility>

#include "include/tdm.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/frontend/worker_records.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/capture.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/end_process.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr std::size_t kMessageMaximum = std::size_t{128} << 10;
constexpr std::size_t kDescriptorsMaximum = 2;  // the directories of a source and of a destination

struct Control {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(kDescriptorsMaximum * sizeof(int))> bytes{};
};

// The worker that this process is.
int front = -1;
std::vector<std::string> said;

void send_or_end(char kind, const std::string &content) {
    if (!send_message(front, kind + content)) _exit(1);
}

void pass_on(std::string_view line, terminal::When when) {
    if (when == terminal::When::in_order) {
        said.emplace_back(line);
    } else {
        send_or_end(kLineMessage, std::string(line));
    }
}

void pass_on_written(const CapturedBytes &bytes) {
    send_or_end(kWrittenMessage, pack(bytes));
}

// What is too long for a message has only been told at too great length.
void report(uint32_t status, After after) {
    Outcome outcome{status, after, terminal::take_notes(), std::exchange(said, {}), take_captured()};
    if (send_message(front, kOutcomeMessage + pack(outcome))) return;
    outcome.notes = {};
    outcome.said = {};
    send_or_end(kOutcomeMessage, pack(outcome));
}

void end_run() {
    report(1, After::ends);
    _exit(1);
}

// Reaches the servers, which is no affair of one file; what fails then fails again for the file.
void make_contact(const Job &job) {
    const Untraced untraced;
    const terminal::AskedBesides besides;
    for (const std::string &path : {job.source, job.destination})
        expect_use(path.c_str());
    for (const std::string &path : {job.source, job.destination}) {
        TdmAttributes attributes{};
        uint32_t location = 0;
        if (!path.empty()) static_cast<void>(tdm_getattr(ctx, path.c_str(), &attributes, &location));
    }
}

void learn(const Job &job) {
    const Untraced untraced;
    for (const std::string &record : job.known)
        learn_known(record);
}

void run_job(const Command &command, const Job &job, std::vector<Descriptor> &descriptors) {
    std::deque<HeldDirectory> held;
    for (std::size_t i = 0; i < job.held.size() && i < descriptors.size(); ++i)
        held.emplace_back(job.held[i], descriptors[i].release());
    const Operand destination = command.names_destination ? Operand::ready(job.destination.c_str()) : nullptr;
    const uint32_t status = run_command(command, Operand::ready(job.source.c_str()), destination);
    report(status, status == kIsForFront ? After::undone : After::goes_on);
}

}  // namespace

uint32_t run_command(const Command &command, const Operand &first, const Operand &second) {
    try {
        return command.run(first, second);
    } catch (const std::bad_alloc &) {
        trace_failure("exec_command", "%s: out of memory", first.shown());
        return 1;
    }
}

bool send_message(int socket, std::string_view message, const std::vector<int> &descriptors) {
    iovec part{const_cast<char *>(message.data()), message.size()};  // only read
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    Control control;
    if (!descriptors.empty()) {
        const std::size_t bytes = descriptors.size() * sizeof(int);
        header.msg_control = control.bytes.data();
        header.msg_controllen = CMSG_SPACE(bytes);
        cmsghdr *const first = CMSG_FIRSTHDR(&header);
        first->cmsg_level = SOL_SOCKET;
        first->cmsg_type = SCM_RIGHTS;
        first->cmsg_len = CMSG_LEN(bytes);
        std::memcpy(CMSG_DATA(first), descriptors.data(), bytes);
    }
    ssize_t sent = 0;
    do {
        sent = sendmsg(socket, &header, MSG_NOSIGNAL);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(message.size());
}

bool receive_message(int socket, std::string &message, std::vector<Descriptor> &descriptors) {
    static std::array<char, kMessageMaximum> room;
    descriptors.clear();
    iovec part{room.data(), room.size()};
    Control control;
    msghdr header{};
    header.msg_iov = &part;
    header.msg_iovlen = 1;
    header.msg_control = control.bytes.data();
    header.msg_controllen = control.bytes.size();
    ssize_t got = 0;
    do {
        got = recvmsg(socket, &header, MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    for (cmsghdr *each = CMSG_FIRSTHDR(&header); got > 0 && each != nullptr; each = CMSG_NXTHDR(&header, each)) {
        for (std::size_t at = 0; at + CMSG_LEN(sizeof(int)) <= each->cmsg_len; at += sizeof(int)) {
            int number = -1;
            std::memcpy(&number, CMSG_DATA(each) + at, sizeof number);
            descriptors.emplace_back(number);
        }
    }
    message.assign(room.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
    return got > 0 && (header.msg_flags & MSG_TRUNC) == 0;
}

void work(int socket, const Command &command) {
    front = socket;
    become_worker();
    if (!capture_output(pass_on_written)) _exit(1);
    terminal::divert(pass_on);
    when_process_ends(end_run);
    static_cast<void>(terminal::take_notes());
    forget_held_directories();
    std::string message;
    std::vector<Descriptor> descriptors;
    Job job;
    for (bool is_first = true; receive_message(socket, message, descriptors); is_first = false) {
        if (!unpack(message, job)) _exit(1);
        learn(job);
        if (is_first) make_contact(job);
        run_job(command, job, descriptors);
    }
    const Untraced untraced;
    tdm_fini(ctx);
    _exit(0);
}
