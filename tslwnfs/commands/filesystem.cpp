// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/filesystem.h"

#include <sys/stat.h>

#include "include/tdm.h"
#include "tslwnfs/commands/attribute_block.h"
#include "tslwnfs/commands/listing.h"
#include "tslwnfs/commands/stat_format.h"
#include "tslwnfs/frontend/messages.h"
#include "tslwnfs/frontend/options.h"
#include "tslwnfs/frontend/output.h"
#include "tslwnfs/frontend/trace.h"
#include "tslwnfs/storage/resolve.h"

namespace {

constexpr const char *kInfoFunction = "fsinfodir";
constexpr const char *kStatFunction = "fsstatdir";

// Links that stat follows one after the other before it takes them for a circle.
constexpr int kMaximumLinks = 1024;

bool option(uint32_t bit) {
    return (COMMAND_OPTION & bit) != 0;
}

void print_status(const struct stat &status) {
    print_local_block(
        status,
        {.line_end = " ", .directory = "Directory", .serial_number = !output_is_log(), .wide_permission_labels = true});
}

void print_limits(const TdmFsInfo &info) {
    const auto figure = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    print("\n \t max. size of a READ request supported by the server    %llu  bytes", figure(info.read_maximum));
    print("\n \t The preferred size of a READ request                   %llu  bytes", figure(info.read_preferred));
    print("\n \t The suggested multiple for the size of a READ request  %u  ", info.read_multiple);
    print("\n \t max. size of a WRITE request supported by the server   %llu  bytes", figure(info.write_maximum));
    print("\n \t The preferred size of a WRITE request                  %llu  bytes", figure(info.write_preferred));
    print("\n \t The suggested multiple for the size of a WRITE request %u ", info.write_multiple);
    print("\n \t he preferred size of a READDIR request                 %llu  bytes", figure(info.readdir_preferred));
}

void print_figures(const TdmFsStat &stat) {
    const auto figure = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    print("\n \t total size of the file system     %llu  bytes", figure(stat.total_bytes));
    print("\n \t free space in the file system     %llu  bytes", figure(stat.free_bytes));
    print("\n \t free space available to the user  %llu  bytes", figure(stat.available_bytes));
    print("\n \t total file slots in file system   %llu ", figure(stat.total_files));
    print("\n \t free file slots in  file system   %llu ", figure(stat.free_files));
    print("\n \t free file slots available to user %llu ", figure(stat.available_files));
    print("\n \t file system volatility            %u  sec", stat.volatility_seconds);
}

uint32_t report_remote_fsinfo(const TdmFsInfo &info) {
    if (info.attributes.type != TDM_TYPE_DIRECTORY) {
        print("not a directory\n");
        return 1;
    }
    print_limits(info);
    print_remote_block(info.attributes);
    return 0;
}

uint32_t report_local_fsinfo(const PathBuffer &path) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0) {
        trace_message(kInfoFunction, Message::status_unreadable, path.c_str());
        return 1;
    }
    print_status(status);
    return 0;
}

// What became of one path: reported with a result, or a link whose target is to be reported instead.
enum class Step { reported, failed, follow };

Step report_remote_fsstat(const PathBuffer &path, const TdmFsStat &stat) {
    const bool is_link = stat.attributes.type == TDM_TYPE_LINK;
    if (stat.attributes.type != TDM_TYPE_DIRECTORY) {
        trace_message(kStatFunction, Message::not_a_directory, path.c_str());
    }
    if (is_link && option(kStatFollow)) return Step::follow;
    if (option(kStatFigures)) print_figures(stat);
    if (!option(kStatFigures | kStatFormat)) print_remote_block(stat.attributes);
    if (option(kStatFormat)) print("%s", format_status(stat_fmtptr, stat.attributes, path.c_str()).c_str());
    return Step::reported;
}

Step report_local_fsstat(const PathBuffer &path) {
    struct stat status;
    if (lstat(path.c_str(), &status) != 0) {
        trace_message(kStatFunction, Message::status_unreadable, path.c_str());
        return Step::failed;
    }
    if (S_ISLNK(status.st_mode) && option(kStatFollow)) return Step::follow;
    if (option(kStatFormat)) {
        print("%s", format_status(stat_fmtptr, status, path.c_str()).c_str());
    } else {
        print_status(status);
    }
    return Step::reported;
}

Step report_fsstat(const PathBuffer &path) {
    TdmFsStat stat = {};
    uint32_t location = 0;
    const uint32_t status = tdm_fsstat(ctx, path.c_str(), &stat, &location);
    if (status == 0 && location == TDM_LOCATION_REMOTE) return report_remote_fsstat(path, stat);
    trace_message(kStatFunction, Message::fsstat_location, path.c_str(), location);
    if (status == 0 && location == TDM_LOCATION_LOCAL) return report_local_fsstat(path);
    return Step::failed;
}

}  // namespace

uint32_t fsinfodir(const char *path) {
    PathBuffer resolved;
    if (!resolve_operand(kInfoFunction, path, resolved)) return 1;
    TdmFsInfo info = {};
    uint32_t location = 0;
    const uint32_t status = tdm_fsinfo(ctx, resolved.c_str(), &info, &location);
    if (status == 0 && location == TDM_LOCATION_REMOTE) return report_remote_fsinfo(info);
    trace_message(kInfoFunction, Message::fsinfo_location, resolved.c_str(), location);
    if (status == 0 && location == TDM_LOCATION_LOCAL) return report_local_fsinfo(resolved);
    return 1;
}

uint32_t fsstatdir(const char *path) {
    PathBuffer resolved;
    if (!resolve_operand(kStatFunction, path, resolved)) return 1;
    for (int links = 0; links <= kMaximumLinks; ++links) {
        const Step step = report_fsstat(resolved);
        if (step != Step::follow) return step == Step::reported ? 0 : 1;
        PathBuffer target;
        if (read_link(resolved.c_str(), target) != 0 || target.empty()) return 1;
        resolved = target;
    }
    tslwnfswrf(3, kStatFunction, "%s: more than %d links, one after the other\n", resolved.c_str(), kMaximumLinks);
    return 1;
}
