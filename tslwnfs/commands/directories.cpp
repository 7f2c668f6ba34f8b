// SPDX-License-Identifier: Apache-2.0
// mkdir and rmdir.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "include/tdm.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/resolve.h"

namespace {

// No path has more levels than characters.
constexpr int kLevelMaximum = static_cast<int>(PathBuffer::kSize) - 1;

uint32_t make_with_parents(const Operand &path, int levels_left);

// Makes one directory where it lies. A location code that is not documented counts as made.
bool make_one(const PathBuffer &path) {
    uint32_t location = 0;
    const uint32_t status = tdm_mkdir(ctx, path.c_str(), &location);
    if (status == 0 && (location == TDM_LOCATION_REMOTE || location > TDM_LOCATION_LOST)) return true;

    trace_message("makedir", Message::mkdir_location, path.c_str(), location);
    if (status != 0 || location != TDM_LOCATION_LOCAL) return false;
    const LocalPlace place = local_place(path.c_str());
    if (mkdirat(place.directory, place.name, S_IRWXU) == 0) return true;
    const int error = errno;
    trace_message("makedir", Message::directory_not_created, path.c_str(), error);
    return false;
}

// Called when path could not be made: makes what is missing above it and tries it again.
uint32_t make_below_parent(const PathBuffer &path, int levels_left) {
    const std::size_t separator = last_separator(path.view());
    PathBuffer parent;
    if (separator == std::string_view::npos || !parent.assign(path.view().substr(0, separator))) return 1;
    if (parent.empty() || levels_left == 0) return 1;

    AttrResult result;
    switch (getattrdir(parent, result, kUnprinted)) {
        case kTypeDirectory:
            return getattrdir(path, result, kUnprinted) == kTypeDirectory ? 0 : 1;
        case kTypeFailure:
            if (make_with_parents(parent, levels_left - 1) != 0) return 1;
            return make_with_parents(path, levels_left - 1);
        default:
            return 1;
    }
}

uint32_t make_with_parents(const Operand &path, int levels_left) {
    PathBuffer resolved;
    if (resolve_operand("makedir", path, resolved) && make_one(resolved)) return 0;
    const bool parents = commandtype == kMakeDirectory && has_option(kMkdirParents);
    return parents && !resolved.empty() ? make_below_parent(resolved, levels_left) : 1;
}

}  // namespace

uint32_t makedir(const Operand &path) {
    return make_with_parents(path, kLevelMaximum);
}

uint32_t removedir(const Operand &path) {
    static constexpr const char *kFunction = "removedir";
    // Undocumented elsewhere, a location code of 4 is one more failure here.
    static constexpr uint32_t kLastFailure = 4;
    PathBuffer resolved;
    if (!resolve_operand(kFunction, path, resolved)) return 1;

    uint32_t location = 0;
    const uint32_t status = tdm_rmdir(ctx, resolved.c_str(), &location);
    if (status == 0 && (location == TDM_LOCATION_REMOTE || location > kLastFailure)) return 0;

    trace_message(kFunction, Message::rmdir_location, resolved.c_str(), location);
    if (status != 0 || location != TDM_LOCATION_LOCAL) return 1;
    const LocalPlace place = local_place(resolved.c_str());
    if (unlinkat(place.directory, place.name, AT_REMOVEDIR) == 0) return 0;
    trace_message(kFunction, Message::directory_not_removed, resolved.c_str());
    return 1;
}
