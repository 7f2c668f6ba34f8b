// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/configuration_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "tslwnfs/output/trace.h"

namespace {
constexpr std::chrono::milliseconds kBetweenTries(5);
}  // namespace

// flock() waits for ever or not at all. False, with errno set.
bool ConfigurationLock::lock_in_time() const {
    const auto deadline = std::chrono::steady_clock::now() + longest_wait_;
    while (flock(directory_.get(), LOCK_EX | LOCK_NB) != 0) {
        const bool is_held = errno == EWOULDBLOCK || errno == EINTR;
        if (!is_held || std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(kBetweenTries);
    }
    return true;
}

bool ConfigurationLock::take(const char *function, const PathBuffer &tslnfstab) {
    if (directory_) return true;
    const std::string directory(tslnfstab.view().substr(0, tslnfstab.view().rfind('/') + 1));
    directory_ = Descriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory_ && faccessat(AT_FDCWD, directory.c_str(), X_OK, AT_EACCESS) != 0) return true;
    if (directory_ && lock_in_time()) return true;
    const int error = errno;
    directory_ = {};
    if (error == EWOULDBLOCK) {
        trace_failure(function, "another run has been changing the configuration in %s for %lld seconds",
                      directory.c_str(), static_cast<long long>(longest_wait_.count() / 1000));
    } else {
        trace_failure(function, "%s cannot be locked against other changes: %s", directory.c_str(),
                      std::strerror(error));
    }
    return false;
}

void ConfigurationLock::settle() const {
    if (directory_) static_cast<void>(fsync(directory_.get()));
}
