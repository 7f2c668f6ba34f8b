// SPDX-License-Identifier: Apache-2.0
#include "tests/support/file_faults.h"

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <optional>

namespace {

struct Fault {
    FailingCall::Call call;
    std::string path;
    int error;
};
std::optional<Fault> fault;
int fault_hits = 0;

bool fails(FailingCall::Call call, const char *path) {
    if (!fault || fault->call != call || fault->path != path) return false;
    ++fault_hits;
    errno = fault->error;
    return true;
}

}  // namespace

FailingCall::FailingCall(Call call, std::string path, int error) {
    fault = Fault{call, std::move(path), error};
    fault_hits = 0;
}

FailingCall::~FailingCall() {
    fault.reset();
}

int FailingCall::hits() const {
    return fault_hits;
}

extern "C" __attribute__((visibility("default"))) int unlink(const char *path) noexcept {
    if (fails(FailingCall::Call::unlink, path)) return -1;
    return static_cast<int>(syscall(SYS_unlinkat, AT_FDCWD, path, 0));
}

extern "C" __attribute__((visibility("default"))) int rename(const char *from, const char *to) noexcept {
    if (fails(FailingCall::Call::rename, from)) return -1;
    return static_cast<int>(syscall(SYS_renameat, AT_FDCWD, from, AT_FDCWD, to));
}
