// SPDX-License-Identifier: Apache-2.0
// Faults of the file system. file_faults.cpp, linked into a test program, stands in front of the C library.
#pragma once

#include <sys/resource.h>

#include <csignal>
#include <string>

// Makes the deletion or the renaming of one path fail with an errno for the length of a scope. One at a time.
class FailingCall {
  public:
    enum class Call { unlink, rename };
    FailingCall(Call call, std::string path, int error);
    ~FailingCall();
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;

    // How often it failed: a fault that was never met proves nothing.
    int hits() const;
};

// No file grows beyond a number of bytes for the length of a scope.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) : signal_(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit = {bytes, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, signal_);
    }
    FileSizeLimit(const FileSizeLimit &) = delete;
    FileSizeLimit &operator=(const FileSizeLimit &) = delete;

  private:
    rlimit before_ = {};
    void (*signal_)(int);
};
