// SPDX-License-Identifier: Apache-2.0
// fsinfo, fsstat and stat: what the server tells of a file system and of an object on it; of a local object, its file
// status.
#include <sys/stat.h>

#include "include/tdm.h"
#include "tslwnfs/commands/attribute_block.h"
#include "tslwnfs/commands/files.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/commands/stat_format.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/resolve.h"

namespace {

// Links that lead to links are followed this often. A ring of them has no other end.
constexpr int kLinkMaximum = 1000;

// The option bits mean this for the code that stat and fsstat share; fsstat has no options and leaves them clear.
bool stat_option(OptionBit bit) {
    return commandtype == kFsStat && has_option(bit);
}

void print_limits(const TdmFsInfo &info) {
    const auto wide = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    print("\n \t max. size of a READ request supported by the server    %llu  bytes", wide(info.read_maximum));
    print("\n \t The preferred size of a READ request                   %llu  bytes", wide(info.read_preferred));
    print("\n \t The suggested multiple for the size of a READ request  %u  ", info.read_multiple);
    print("\n \t max. size of a WRITE request supported by the server   %llu  bytes", wide(info.write_maximum));
    print("\n \t The preferred size of a WRITE request                  %llu  bytes", wide(info.write_preferred));
    print("\n \t The suggested multiple for the size of a WRITE request %u ", info.write_multiple);
    print("\n \t he preferred size of a READDIR request                 %llu  bytes", wide(info.readdir_preferred));
}

void print_figures(const TdmFsStat &figures) {
    const auto wide = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    print("\n \t total size of the file system     %llu  bytes", wide(figures.total_bytes));
    print("\n \t free space in the file system     %llu  bytes", wide(figures.free_bytes));
    print("\n \t free space available to the user  %llu  bytes", wide(figures.available_bytes));
    print("\n \t total file slots in file system   %llu ", wide(figures.total_files));
    print("\n \t free file slots in  file system   %llu ", wide(figures.free_files));
    print("\n \t free file slots available to user %llu ", wide(figures.available_files));
    print("\n \t file system volatility            %u  sec", figures.volatility_seconds);
}

void print_local(const struct stat &status) {
    print_local_block(
        status,
        {.line_end = " ", .directory = "Directory", .serial_number = !output_is_log(), .wide_permission_labels = true});
}

bool read_status(const char *function, int (*read)(const char *, struct stat *), const PathBuffer &path,
                 struct stat &status) {
    if (read(path.c_str(), &status) == 0) return true;
    trace_message(function, Message::status_unreadable, path.c_str());
    return false;
}

// What one object's turn came to: described, failed, or a link to be followed.
enum class Described : uint8_t { done, failed, follow };

Described describe_remote(const PathBuffer &path, const TdmFsStat &figures) {
    const uint32_t type = figures.attributes.type;
    if (type != TDM_TYPE_DIRECTORY) trace_message("fsstatdir", Message::not_a_directory, path.c_str());
    if (type == TDM_TYPE_LINK && stat_option(kStatFollow)) return Described::follow;
    if (stat_option(kStatFigures)) print_figures(figures);
    if (stat_option(kStatFormat)) {
        const char *format = stat_fmtptr == nullptr ? "" : stat_fmtptr;
        print("%s", format_remote(format, shown_name(path.view()), figures.attributes).c_str());
    } else if (!stat_option(kStatFigures)) {
        print_remote_block(figures.attributes);
    }
    return Described::done;
}

Described describe_local(const PathBuffer &path) {
    struct stat status;
    if (!read_status("fsstatdir", lstat, path, status)) return Described::failed;
    if (S_ISLNK(status.st_mode) && stat_option(kStatFollow)) return Described::follow;
    if (stat_option(kStatFormat)) {
        const char *format = stat_fmtptr == nullptr ? "" : stat_fmtptr;
        print("%s", format_local(format, shown_name(path.view()), status).c_str());
    } else {
        print_local(status);
    }
    return Described::done;
}

Described describe(const PathBuffer &path) {
    TdmFsStat figures = {};
    uint32_t location = 0;
    const uint32_t status = tdm_fsstat(ctx, path.c_str(), &figures, &location);
    if (status == 0 && location == TDM_LOCATION_REMOTE) return describe_remote(path, figures);
    trace_message("fsstatdir", Message::fsstat_location, path.c_str(), location);
    if (status != 0 || location != TDM_LOCATION_LOCAL) return Described::failed;
    return describe_local(path);
}

}  // namespace

uint32_t fsinfodir(const Operand &path) {
    static constexpr const char *kFunction = "fsinfodir";
    PathBuffer resolved;
    if (!resolve_operand(kFunction, path, resolved)) return 1;

    TdmFsInfo info = {};
    uint32_t location = 0;
    const uint32_t status = tdm_fsinfo(ctx, resolved.c_str(), &info, &location);
    if (status == 0 && location == TDM_LOCATION_REMOTE) {
        if (info.attributes.type != TDM_TYPE_DIRECTORY) {
            print("not a directory\n");
            return 1;
        }
        print_limits(info);
        print_remote_block(info.attributes);
        return 0;
    }
    trace_message(kFunction, Message::fsinfo_location, resolved.c_str(), location);
    if (status != 0 || location != TDM_LOCATION_LOCAL) return 1;
    struct stat file_status;
    if (!read_status(kFunction, stat, resolved, file_status)) return 1;
    print_local(file_status);
    return 0;
}

uint32_t fsstatdir(const Operand &path) {
    static constexpr const char *kFunction = "fsstatdir";
    PathBuffer resolved;
    if (!resolve_operand(kFunction, path, resolved)) return 1;
    for (int links = 0; links <= kLinkMaximum; ++links) {
        const Described described = describe(resolved);
        if (described != Described::follow) return described == Described::done ? 0 : 1;
        PathBuffer target;
        if (read_link(resolved, target) != 0 || leads_off_server(kFunction, resolved, target)) return 1;
        if (!resolve_operand(kFunction, target, resolved)) return 1;
    }
    trace_failure(kFunction, "%s: more than %d links in a row", resolved.c_str(), kLinkMaximum);
    return 1;
}
