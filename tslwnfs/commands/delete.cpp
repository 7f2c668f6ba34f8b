// SPDX-License-Identifier: Apache-2.0
// del: a file, and with -r a tree.
#include <optional>
#include <string>

#include "include/tdm.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/deletion.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/frontend/executor.h"
#include "tslwnfs/frontend/messages.h"
#include "tslwnfs/frontend/options.h"
#include "tslwnfs/frontend/output.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/identify.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr const char *kFunction = "delfile";

bool option(OptionBit bit) {
    return commandtype == kDelete && (COMMAND_OPTION & bit) != 0;
}

bool confirm(const PathBuffer &path) {
    return !option(kFileInteractive) || ask_yes_no("delete %s? y/n : ", path.c_str()) == Answer::yes;
}

// What the directory holds goes first, through the executor; whether anything is left shows when the directory itself
// is removed.
uint32_t delete_directory(const PathBuffer &path, const AttrResult &attributes) {
    if (!option(kFileRecursive)) {
        terminal::note_failure(std::string(path.view()) + " is a directory; with -r it is deleted, too");
        return 1;
    }
    PathBuffer content = path;
    if (!extend_path(kFunction, content, "/*")) return 1;
    {
        std::optional<HeldDirectory> held;
        if (attributes.local) held.emplace(path);
        exec_command(content, nullptr);
    }
    if (!confirm(path)) return 1;
    return removedir(path) == 0 ? 0 : 1;
}

// A link is deleted as a link: what it leads to need neither exist nor be readable.
uint32_t delete_local(const PathBuffer &path, bool is_link) {
    if (!is_link && !check_deletable(kFunction, path)) return 1;
    return confirm(path) && delete_local_file(kFunction, path) ? 0 : 1;
}

uint32_t delete_remote(const PathBuffer &path) {
    if (!confirm(path)) return 1;
    uint32_t location = 0;
    if (tdm_delete(ctx, path.c_str(), &location) == 0 && location == TDM_LOCATION_REMOTE) return 0;
    trace_message(kFunction, Message::remote_delete_failed, path.c_str(), location);
    return 1;
}

}  // namespace

uint32_t delfile(const Operand &path) {
    PathBuffer resolved;
    if (!resolve_operand(kFunction, path, resolved)) return 1;
    AttrResult attributes;
    const uint32_t type = getattrdir(resolved, attributes, 0);
    if (type == kTypeDirectory) return delete_directory(resolved, attributes);

    // Identified only to learn where the file lies. Deletion works by name, so the file is not released.
    TdmFileInfo info = {};
    switch (identify_existing(kFunction, resolved, info)) {
        case FileKind::local:
            return delete_local(resolved, type == kTypeLink);
        case FileKind::remote:
            return delete_remote(resolved);
        case FileKind::failed:
            break;
    }
    return 1;
}
