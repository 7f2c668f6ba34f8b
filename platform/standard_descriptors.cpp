// SPDX-License-Identifier: Apache-2.0
#include "platform/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

#include "platform/descriptor.h"

namespace {

// Opened the wrong way round: what is read or written all the same fails.
bool take_descriptor(int descriptor) {
    const int direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
    Descriptor taken(open("/dev/null", direction));
    if (!taken) taken = Descriptor(open("/", O_RDONLY | O_DIRECTORY));  // a root without devices
    return taken.get() == descriptor && taken.release() == descriptor;  // it stays open
}

}  // namespace

bool take_standard_descriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) < 0 && !take_descriptor(descriptor)) return false;
    }
    return true;
}
