// SPDX-License-Identifier: Apache-2.0
// createtslnfstab: one server's block at the end of tslnfstab.
#include "tslwnfs/options/server_block.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "platform/descriptor.h"
#include "tslwnfs/config/block_values.h"
#include "tslwnfs/config/config.h"
#include "tslwnfs/config/server_deletion.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/config/warning.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr char kFunction[] = "createtslnfstab";
constexpr mode_t kWithCommunity = 0640;  // which is a password of a kind

template <class Entry>
bool is_too_long(const std::optional<std::vector<Entry>> &entries) {
    return entries && entries->size() > ServerBlock::kListMaximum;
}

// True unless the file is there and nothing may be added to it. Creates nothing.
bool can_append(const char *path) {
    const Descriptor file(open(path, O_WRONLY | O_APPEND | O_CLOEXEC | O_NONBLOCK));
    return file || errno == ENOENT;
}

// Whether a block may be written as it is. Traced, when it may not; what it will not mean as it is told.
bool check_values(const ServerBlock &server) {
    if (is_too_long(server.pairs) || is_too_long(server.exports)) {
        trace_failure(kFunction, "more than %zu entries in a list", ServerBlock::kListMaximum);
        return false;
    }
    const auto settings = settings_of(server);
    if (!are_writable(kFunction, settings)) return false;
    const auto misreadings = misreadings_of(settings);
    for (const auto &misreading : misreadings)
        warn(kFunction, misreading);
    for (const auto &doubt : doubts_about(settings))
        warn(kFunction, doubt);
    const std::string problem = problem_of(settings);
    if (misreadings.empty() && !problem.empty()) warn(kFunction, "the server cannot be used: " + problem);
    return true;
}

// What has to stand ahead of a block that is added to a file.
std::string separator_for(const char *path) {
    std::string file;
    return read_whole_file(path, file) ? std::string(separator_behind(file)) : "";
}

}  // namespace

uint32_t createtslnfstab() {
    if (!tab_info.server) {
        lwrf("%s", "Server name is mandatory for createtslnfstab function\n");
        terminal::note_failure("-s SERVER is missing");
        return 1;
    }
    // Everything that can refuse the new block comes before the old one of that server goes.
    if (!check_values(tab_info)) return 1;
    PathBuffer path;
    ConfigurationLock lock;
    if (!find_and_lock_tslnfstab(kFunction, path, lock) || is_left_in_backup(kFunction, path)) return 1;
    if (!can_append(path.c_str())) {
        trace_message(kFunction, Message::file_unopenable, path.c_str());
        return 1;
    }
    const std::string block = server_block_text(tab_info);
    switch (replace_server(tab_info.server->c_str(), block, lock)) {
        case Replacement::done:
            return 0;
        case Replacement::refused:
            return 1;
        case Replacement::not_there:
            break;
    }
    const mode_t mode = tab_info.community ? kWithCommunity : kOrdinaryFile;
    return append_to_tslnfstab(kFunction, path, separator_for(path.c_str()) + block, lock, mode);
}
