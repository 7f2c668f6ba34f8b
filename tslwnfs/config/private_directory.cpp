// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/private_directory.h"

#include <sys/stat.h>

#include <cerrno>

#include "tslwnfs/output/messages.h"

bool have_private_directory(const char *function, const char *path) {
    constexpr mode_t kOwnerOnly = 0700;
    struct stat status;
    if (stat(path, &status) == 0) {
        if (S_ISDIR(status.st_mode)) return true;
        trace_message(function, Message::not_a_directory, path);
        return false;
    }
    if (errno != ENOENT) {
        trace_message(function, Message::status_unreadable, path);
        return false;
    }
    if (mkdir(path, kOwnerOnly) == 0) return true;
    trace_message(function, Message::directory_not_created, path, errno);
    return false;
}
