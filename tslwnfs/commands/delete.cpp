// SPDX-License-Identifier: Apache-2.0
// del: a file, and with -r a tree.
#include <optional>
#include <string>

#include "include/tdm.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/deletion.h"
#include "tslwnfs/commands/executor.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/identify.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr const char *kDelfile = "delfile";

bool delete_option(OptionBit bit) {
    return commandtype == kDelete && has_option(bit);
}

bool confirm(const PathBuffer &path) {
    return !delete_option(kFileInteractive) || ask_yes_no("delete %s? y/n : ", path.c_str()) == Answer::yes;
}

// What the directory holds goes first, through the executor; whether anything is left shows when the directory itself
// is removed.
uint32_t delete_directory(const PathBuffer &path, const AttrResult &attributes) {
    if (!delete_option(kFileRecursive)) {
        terminal::note_failure(std::string(path.view()) + " is a directory; with -r it is deleted, too");
        return 1;
    }
    if (is_worker()) return kIsForFront;
    PathBuffer content = path;
    if (!extend_path(kDelfile, content, "/*")) return 1;
    const bool is_empty = is_empty_directory(path);
    uint32_t inside = 0;
    {
        std::optional<HeldDirectory> held;
        if (attributes.local) held.emplace(path);
        inside = exec_command(content, nullptr);
    }
    if (inside == kNamesLeftOut) {
        trace_failure(kDelfile, "%s is kept: it has names that no path can hold", path.c_str());
        return 1;
    }
    if (!confirm(path) || removedir(path) != 0) return 1;
    return is_strict(Strict::status) && !is_empty ? inside : 0;
}

uint32_t delete_local(const PathBuffer &path) {
    return confirm(path) && delete_local_file(kDelfile, path) ? 0 : 1;
}

uint32_t delete_remote(const PathBuffer &path) {
    if (!confirm(path)) return 1;
    uint32_t location = 0;
    if (tdm_delete(ctx, path.c_str(), &location) == 0 && location == TDM_LOCATION_REMOTE) return 0;
    trace_message(kDelfile, Message::remote_delete_failed, path.c_str(), location);
    return 1;
}

// Identified only to learn where the file lies. Deletion works by name, so the file is not released.
uint32_t delete_regular(const PathBuffer &path) {
    TdmFileInfo info = {};
    switch (identify_existing(kDelfile, path, info)) {
        case FileKind::local:
            return check_deletable(kDelfile, path) ? delete_local(path) : 1;
        case FileKind::remote:
            return delete_remote(path);
        case FileKind::failed:
            break;
    }
    return 1;
}

}  // namespace

uint32_t delfile(const Operand &path) {
    PathBuffer resolved;
    if (!resolve_operand(kDelfile, path, resolved)) return 1;
    AttrResult attributes;
    switch (kind_of(resolved, attributes)) {
        case Kind::directory:
            return delete_directory(resolved, attributes);
        case Kind::link:
        case Kind::special:
            // Neither what a link leads to nor what a pipe or device gives is of interest: not even whether there is
            // something.
            return attributes.local ? delete_local(resolved) : delete_remote(resolved);
        default:
            return delete_regular(resolved);
    }
}
