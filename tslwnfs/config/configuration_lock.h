// SPDX-License-Identifier: Apache-2.0
// One run at a time changes the configuration.
#pragma once

#include <chrono>

#include "platform/descriptor.h"
#include "platform/path_buffer.h"

// A lock on the directory that holds tslnfstab and its companions. It leaves no file behind, and the system gives it
// back when a run ends, however it ends.
class ConfigurationLock {
  public:
    static constexpr std::chrono::milliseconds kLongestWait{10'000};

    ConfigurationLock() = default;
    explicit ConfigurationLock(std::chrono::milliseconds longest_wait) : longest_wait_(longest_wait) {}

    // Takes the lock from reading to the last change, waiting a while for the run that has it. False when that does not
    // give it back or the directory cannot be locked: the reason is traced as a record of function. In a directory that
    // is not there or closed to the caller there is nothing to guard, and the command will find that out by itself. A
    // lock that was taken already stays.
    [[nodiscard]] bool take(const char *function, const PathBuffer &tslnfstab);

    // Brings what was renamed or made in the directory to stable storage. Taken without a lock it does nothing.
    void settle() const;

  private:
    bool lock_in_time() const;

    std::chrono::milliseconds longest_wait_ = kLongestWait;
    Descriptor directory_;
};
