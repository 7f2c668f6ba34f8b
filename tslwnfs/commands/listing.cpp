// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/listing.h"

#include <string_view>

#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/listing_layout.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/optional_operations.h"
#include "tslwnfs/storage/resolve.h"

namespace {

constexpr int32_t kTreeDepth = 50;

// Lists what lies below, in the order the names were shown. Returns false when some of it could not be asked about or
// listed; that has been reported there.
bool list_subdirectories(const PathBuffer &path, const NameList &names, int32_t depth) {
    if (depth + 1 == kTreeDepth) return true;
    bool complete = true;
    const bool reverse = has_option(kListReverse);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string_view name = names[reverse ? names.size() - 1 - i : i];
        PathBuffer full;
        if (!join_path("read_dirlist", path, name, full)) continue;
        AttrResult attributes;
        const Kind kind = kind_of(full, attributes);
        const bool asked = kind != Kind::missing && !attributes.empty();
        if (!asked || (kind == Kind::directory && read_dirlist(full, depth + 1) != 0)) complete = false;
    }
    return complete;
}

// Lists the names of a directory.
bool list_names(const PathBuffer &path, NameList &names, Afterwards afterwards, bool *complete = nullptr,
                const NameFilter &wanted = {}) {
    if (afterwards == Afterwards::attributes) expect_attributes(path.c_str());
    return read_directory(path, names, complete, wanted);
}

// Gives the names for a path, and tells whether they are its content.
bool list(const PathBuffer &path, NameList &names, Listed &listed, Afterwards afterwards) {
    AttrResult attributes;
    const Kind kind = kind_of(path, attributes);
    listed = kind == Kind::directory || kind == Kind::missing ? Listed::directory : Listed::single_path;
    if (listed == Listed::directory) return list_names(path, names, afterwards);
    names.add(path.view());
    return true;
}

}  // namespace

uint32_t read_dir(const Operand &path, NameList &names, int32_t print_names) {
    names.clear();
    PathBuffer resolved;
    Listed listed = Listed::directory;
    const bool asks = print_names != 0 && shows_attributes();
    const Afterwards afterwards = asks ? Afterwards::attributes : Afterwards::anything;
    if (!resolve_operand("read_dir", path, resolved) || !list(resolved, names, listed, afterwards)) return 1;
    return print_names == 0 || print_listing(resolved, names, listed) ? 0 : 1;
}

bool is_empty_directory(const PathBuffer &path) {
    NameList names;
    return is_strict(Strict::status) && read_dir(path, names, kUnprinted) == 0 && names.empty();
}

uint32_t list_content(const Operand &path, NameList &names, Afterwards afterwards, const NameFilter &wanted) {
    names.clear();
    PathBuffer resolved;
    if (!resolve_operand("read_dir", path, resolved)) return 1;
    AttrResult attributes;
    const Kind kind = kind_of(resolved, attributes);
    if (kind != Kind::regular && kind != Kind::special) {
        bool complete = true;
        if (!list_names(resolved, names, afterwards, &complete, wanted)) return 1;
        return complete ? 0 : kNamesLeftOut;
    }
    trace_failure("read_dir", "%s is no directory", resolved.c_str());
    return kNoDirectory;
}

uint32_t read_dirlist(const Operand &path, int32_t depth) {
    if (depth >= kTreeDepth) return 1;
    print("DIR: %s \n", shown_name(path.shown()).c_str());
    NameList names;
    PathBuffer resolved;
    Listed listed = Listed::directory;
    const bool resolvable = resolve_operand("read_dir", path, resolved);
    if (!resolvable || !list(resolved, names, listed, Afterwards::attributes)) {
        trace_message("read_dirlist", Message::directory_unlisted, path.shown());
        return 1;
    }
    const bool shown = print_listing(resolved, names, listed);
    if (listed == Listed::single_path) return shown ? 0 : 1;
    return list_subdirectories(resolved, names, depth) && shown ? 0 : 1;
}
