// SPDX-License-Identifier: Apache-2.0
// Faults of the file system. file_faults.cpp, linked into a test program, stands in front of the C library.
#pragma once

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
