// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/interruption.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <utility>

#include "tslwnfs/terminal/reasons.h"
#include "tslwnfs/terminal/screen.h"
#include "tslwnfs/terminal/text.h"
#include "tslwnfs/terminal/translation.h"

namespace terminal {
namespace {

constexpr std::array kSignals = {SIGINT, SIGTERM, SIGHUP};
constexpr int kSignalBase = 128;  // of a status that tells a signal

// What the handlers know of the file at hand.
constexpr char kWrittenHere = '\1', kTotalHere = '\2';  // no name holds them, as it is shown
constexpr std::size_t kNameMaximum = 512;               // a name that is longer keeps its end
constexpr std::size_t kLineMaximum = kNameMaximum + 256;
std::string name;
std::array<char, kLineMaximum> line_at_once = {};  // put together beforehand, but for the numbers
std::atomic<std::size_t> line_length = 0;
std::atomic<uint64_t> written = 0, total = 0;
std::atomic<bool> is_writing = false;
std::atomic<int> arrived = 0;
UnfinishedFile::Settle settle_file;
static_assert(std::atomic<uint64_t>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

// The processes that work for this one; 0 where there is none.
constexpr std::size_t kCompanionsMaximum = 32;
std::array<std::atomic<pid_t>, kCompanionsMaximum> companions = {};
bool is_companion = false;

// A line put together without anything that a handler must not call.
class Line {
  public:
    void add(std::string_view text) {
        const std::size_t length = std::min(text.size(), text_.size() - used_);
        std::copy_n(text.begin(), length, text_.begin() + static_cast<std::ptrdiff_t>(used_));
        used_ += length;
    }
    // Millions with one digit behind the point.
    void add_megabytes(uint64_t bytes) {
        constexpr uint64_t kTenth = 100000;
        const uint64_t tenths = bytes / kTenth + (bytes % kTenth >= kTenth / 2 ? 1 : 0);
        add_number(tenths / 10);
        add(".");
        add_number(tenths % 10);
    }
    std::string_view text() const { return {text_.data(), used_}; }

  private:
    void add_number(uint64_t number) {
        std::array<char, 20> digits = {};
        std::size_t first = digits.size();
        do {
            digits.at(--first) = static_cast<char>('0' + number % 10);
            number /= 10;
        } while (number != 0);
        add({digits.data() + first, digits.size() - first});
    }

    std::array<char, kLineMaximum + 80> text_ = {};
    std::size_t used_ = 0;
};

// That the file at hand is not complete; how much of it there is stands where the numbers belong.
std::string incomplete(bool at_most) {
    const std::string_view done(&kWrittenHere, 1), all(&kTotalHere, 1);
    if (total == 0) {
        return in_words(at_most ? "interrupted: {1} is not complete (at most {2} MB written)"
                                : "interrupted: {1} is not complete ({2} MB written)",
                        {name, done});
    }
    return in_words(at_most ? "interrupted: {1} is not complete (at most {2} of {3} MB written)"
                            : "interrupted: {1} is not complete ({2} of {3} MB written)",
                    {name, done, all});
}

void add_with_numbers(Line &line, std::string_view text) {
    for (const char &c : text) {
        if (c == kWrittenHere) {
            line.add_megabytes(written);
        } else if (c == kTotalHere) {
            line.add_megabytes(total);
        } else {
            line.add({&c, 1});
        }
    }
}

Line settled_line() {
    const auto there = settle_file ? settle_file() : std::nullopt;
    if (there) written = *there;
    Line line;
    add_with_numbers(line, incomplete(!there));
    return line;
}

void write_all(std::string_view text) {
    [[maybe_unused]] const ssize_t ignored = write(STDERR_FILENO, text.data(), text.size());
}

// The transfer did not come to its end: what the server took is not known, only what it cannot be more than.
[[noreturn]] void end_at_once(int signal) {
    erase_in_handler();
    if (is_open()) {
        Line line;
        line.add("tslwnfs: ");
        add_with_numbers(line, {line_at_once.data(), line_length});
        line.add("\n");
        write_all(line.text());
    }
    _exit(kSignalBase + signal);
}

void on_alarm(int) {
    end_at_once(arrived);
}

void end_by(int signal) {
    erase_in_handler();
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// Forgets one that is at its end; true when it was in the middle of a file.
bool is_gone_from_file(std::atomic<pid_t> &companion, int how) {
    int status = 0;
    const pid_t gone = waitpid(companion, &status, how);
    if (gone != 0) companion = 0;
    return gone > 0 && WIFEXITED(status) && WEXITSTATUS(status) == kSignalBase + SIGTERM;
}

// Each has its second and a little. True when one was in the middle of a file.
bool end_companions() {
    constexpr int kRounds = 130, kRound = 10;  // ms
    bool wrote = false;
    const auto is_there = [](const auto &companion) { return companion != 0; };
    if (std::none_of(companions.begin(), companions.end(), is_there)) return false;
    erase_in_handler();
    for (const auto &companion : companions)
        if (companion != 0) kill(companion, SIGTERM);
    for (int i = 0; i < kRounds && std::any_of(companions.begin(), companions.end(), is_there); ++i) {
        for (auto &companion : companions)
            if (companion != 0 && is_gone_from_file(companion, WNOHANG)) wrote = true;
        if (i > 0) poll(nullptr, 0, kRound);
    }
    for (auto &companion : companions) {
        if (companion == 0) continue;
        kill(companion, SIGKILL);
        is_gone_from_file(companion, 0);
    }
    return wrote;
}

void on_signal(int signal) {
    const bool others_wrote = end_companions();
    if (!is_writing && others_wrote) _exit(kSignalBase + signal);
    if (!is_writing) return end_by(signal);
    int none = 0;
    if (!arrived.compare_exchange_strong(none, signal)) end_at_once(none);
    const itimerval second = {.it_interval = {}, .it_value = {.tv_sec = 1, .tv_usec = 0}};
    setitimer(ITIMER_REAL, &second, nullptr);
}

void handle(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
}

}  // namespace

void watch_interruptions() {
    for (const int signal : kSignals) {
        struct sigaction before = {};
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) handle(signal, on_signal);
    }
    handle(SIGALRM, on_alarm);
}

pid_t fork_companion() {
    sigset_t all, before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    const pid_t front = getpid();
    const pid_t process = fork();
    const auto free_place = std::find(companions.begin(), companions.end(), 0);
    if (process > 0 && free_place != companions.end()) *free_place = process;
    if (process == 0) {
        // However the other one ends, none is left running.
        if (prctl(PR_SET_PDEATHSIG, SIGKILL) != 0 || getppid() != front) _exit(1);
        is_companion = true;
        for (auto &companion : companions)
            companion = 0;
        for (const int signal : {SIGINT, SIGHUP})
            std::signal(signal, SIG_IGN);
        handle(SIGTERM, on_signal);
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return process;
}

pid_t await_companion(pid_t companion, int &status) {
    for (auto &each : companions)
        if (each == companion) each = 0;
    pid_t gone = 0;
    do {
        gone = waitpid(companion, &status, 0);
    } while (gone < 0 && errno == EINTR);
    return gone;
}

UnfinishedFile::UnfinishedFile(std::string_view file_name, uint64_t bytes, Settle settle) {
    settle_file = std::move(settle);
    name = printable(file_name);
    if (name.size() > kNameMaximum) name.erase(0, name.size() - kNameMaximum);
    written = 0;
    total = bytes;
    const std::string line = incomplete(true);
    line_length = line.copy(line_at_once.data(), line_at_once.size());
    is_writing = true;
}

UnfinishedFile::~UnfinishedFile() {
    is_writing = false;
    settle_file = nullptr;
    // It came while the last bytes were on their way.
    if (arrived != 0) end_program(arrived);
}

void UnfinishedFile::at(uint64_t bytes) {
    written = bytes;
}

int UnfinishedFile::interruption() {
    return arrived;
}

void UnfinishedFile::tell() {
    say(settled_line().text(), When::at_the_end);
}

void UnfinishedFile::note() {
    if (is_writing) note_aftermath(settled_line().text());
}

void UnfinishedFile::end_program(int signal) {
    if (is_companion) _exit(kSignalBase + signal);
    std::exit(kSignalBase + signal);
}

}  // namespace terminal
