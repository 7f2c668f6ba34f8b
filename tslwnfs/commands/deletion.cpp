// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/deletion.h"

#include <unistd.h>

#include "tslwnfs/output/messages.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/local_file.h"

bool check_deletable(const char *function, const PathBuffer &path) {
    if (is_readable(path.c_str())) return true;
    trace_message(function, Message::file_unopenable, path.c_str());
    return false;
}

bool delete_local_file(const char *function, const PathBuffer &path) {
    const LocalPlace place = local_place(path.c_str());
    if (unlinkat(place.directory, place.name, 0) == 0) return true;
    trace_message(function, Message::file_not_deleted, path.c_str());
    return false;
}
