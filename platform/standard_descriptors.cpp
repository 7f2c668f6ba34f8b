// SPDX-License-Identifier: Apache-2.0
#include "platform/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace {

// Opened the wrong way round: what is read or written all the same fails.
bool take_descriptor(int descriptor) {
    const int direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    int taken = open("/dev/null", direction);
    if (taken < 0) taken = open("/", O_RDONLY | O_DIRECTORY);  // a root without devices
    if (taken == descriptor) return true;
    if (taken >= 0) close(taken);
    return false;
}

}  // namespace

bool take_standard_descriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0 && !take_descriptor(descriptor)) return false;
    }
    return true;
}
