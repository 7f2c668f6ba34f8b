// SPDX-License-Identifier: Apache-2.0
// SIGINT, SIGTERM and SIGHUP: nothing that is shown stays behind, and of a file that is being written a person reads
// how much of it is there. Signals that the caller of the program ignored stay ignored.
//
// A transfer is asked to end itself and has a second for it, because what it waits for may never come. Everything else
// ends by the signal at once.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace terminal {

// From now on.
void watch_interruptions();

// A process that works for this one. It has what fork() gives, but signals of the terminal are none of its affair: an
// interruption of this process ends it by SIGTERM, and with that it has the second that this one would have. It ends
// with _exit() only. Returns as fork() does.
pid_t fork_companion();
// Waits for the end of one, and gives what waitpid() does.
pid_t await_companion(pid_t companion, int &status);

// A file that is being written: while one lives an interruption is left to the transfer, which asks for it between two
// pieces. They do not nest.
class UnfinishedFile {
  public:
    // Puts a file whose writing failed in order and gives how many bytes of it are there; nothing when nobody knows.
    using Settle = std::function<std::optional<uint64_t>()>;

    // total: bytes that are to be written; 0 when nobody knows.
    UnfinishedFile(std::string_view name, uint64_t total, Settle settle = {});
    ~UnfinishedFile();
    UnfinishedFile(const UnfinishedFile &) = delete;
    UnfinishedFile &operator=(const UnfinishedFile &) = delete;

    // Tells how many bytes have been given away to be written.
    static void at(uint64_t written);

    // The signal that arrived; 0 for none.
    static int interruption();

    // Has the file at hand settled, and says that it is not complete and how much of it is there.
    static void tell();
    // The same for the reason of a failure, if there is a file at hand.
    static void note();

    // Ends the program as an interruption does: the status is 128 and the signal.
    [[noreturn]] static void end_program(int signal);
};

}  // namespace terminal
