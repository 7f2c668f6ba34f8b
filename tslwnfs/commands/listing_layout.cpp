// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/listing_layout.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <string_view>
#include <vector>

#include "tslwnfs/commands/attribute_block.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/terminal/text.h"

namespace {

enum Layout : int32_t { kNamePerLine = 0, kColumns = 1, kLong = 2 };
enum TimeShown : int32_t { kModification = 0, kStatusChange = 1, kAccess = 2 };

constexpr std::size_t kNameWidth = 31;

// What the layouts show of an entry's attributes; of a million of them only that is kept.
struct Details {
    uint64_t size = 0;
    uint64_t time = 0;
    uint32_t mode = 0;
    uint32_t links = 0;
    uint32_t uid = 0;
    uint32_t gid = 0;
    bool is_local = false;
};

// The entries that are shown, by their place in the list of names. Without details when the layout needs none.
struct Entries {
    const NameList &names;
    const bool on_screen;
    std::vector<uint32_t> places;
    std::vector<Details> details;

    std::size_t size() const { return places.size(); }
};

// A name that is wider than the column gets the whole column's blanks behind it, so that it still stands apart. Scripts
// get so many bytes; at a terminal the columns of the screen count.
std::string padded(const std::string &name, bool on_screen) {
    const std::size_t width = on_screen ? terminal::columns_of(name) : name.size();
    const std::size_t blanks = width > kNameWidth ? kNameWidth : kNameWidth - width;
    std::string shown;
    shown.reserve(name.size() + blanks);
    return shown.append(name).append(blanks, ' ');
}

// A path that is too long is as good as one that cannot be asked about.
Kind fetch_attributes(const PathBuffer &path, std::string_view name, Listed listed, AttrResult &attributes) {
    PathBuffer full = path;
    if (listed == Listed::directory && !join_path("read_dir", path, name, full)) return Kind::missing;
    const Kind kind = kind_of(full, attributes);
    return attributes.empty() ? Kind::missing : kind;
}

Details details_of(const struct stat &status) {
    time_t time = status.st_mtime;
    if (DIR_LTYPE == kLong && DIR_LTIMETYPE == kStatusChange) time = status.st_ctime;
    if (DIR_LTYPE == kLong && DIR_LTIMETYPE == kAccess) time = status.st_atime;
    return {static_cast<uint64_t>(status.st_size),
            static_cast<uint64_t>(time),
            status.st_mode,
            static_cast<uint32_t>(status.st_nlink),
            status.st_uid,
            status.st_gid,
            true};
}

// The type, too, stands among the bits of the mode, as the system would put it there.
Details details_of(const TdmAttributes &attributes) {
    uint64_t time = attributes.modification_seconds;
    if (DIR_LTYPE == kLong && DIR_LTIMETYPE == kStatusChange) time = attributes.change_seconds;
    // Only the log has the access time; standard output shows the status change for both.
    if (DIR_LTYPE == kLong && DIR_LTIMETYPE == kAccess)
        time = output_is_log() ? attributes.access_seconds : attributes.change_seconds;
    uint32_t mode = attributes.permissions & ~uint32_t{S_IFMT};
    if (attributes.type == TDM_TYPE_REGULAR) mode |= S_IFREG;
    if (attributes.type == TDM_TYPE_DIRECTORY) mode |= S_IFDIR;
    return {attributes.size, time, mode, 0, attributes.uid, attributes.gid, false};
}

Details details_of(const AttrResult &attributes) {
    return attributes.is_local != 0 ? details_of(*attributes.local) : details_of(*attributes.remote);
}

// Returns false when some entry could not be asked about.
bool collect_entries(const PathBuffer &path, Listed listed, Entries &entries) {
    bool complete = true;
    const bool detailed = shows_attributes();
    entries.places.reserve(entries.names.size());
    if (detailed) entries.details.reserve(entries.names.size());
    for (std::size_t i = 0; i < entries.names.size(); ++i) {
        const std::string_view name = entries.names[i];
        AttrResult attributes;
        if (detailed) {
            const Kind kind = fetch_attributes(path, name, listed, attributes);
            if (kind == Kind::missing) complete = false;
            if (kind == Kind::missing || (kind != Kind::directory && has_option(kListDirectoriesOnly))) continue;
        }
        if (DIR_SHOWDOT == 0 && name.starts_with('.')) continue;
        entries.places.push_back(static_cast<uint32_t>(i));
        if (detailed) entries.details.push_back(details_of(attributes));
    }
    if (has_option(kListReverse)) {
        std::reverse(entries.places.begin(), entries.places.end());
        std::reverse(entries.details.begin(), entries.details.end());
    }
    return complete;
}

std::string shown(const Entries &entries, std::size_t index) {
    return padded(shown_name(entries.names[entries.places[index]]), entries.on_screen);
}

void print_size(const Entries &entries, std::size_t index) {
    if (!has_option(kListSize)) return;
    const Details &details = entries.details[index];
    if (details.is_local) {
        print("%s  ", format_I64d(static_cast<int64_t>(details.size)).c_str());
    } else {
        print("%llu  ", static_cast<unsigned long long>(details.size));
    }
}

void print_name_per_line(const Entries &entries) {
    if (DIR_SHOWDOT != 0) print(". \n .. \n");
    for (std::size_t index = 0; index < entries.size(); ++index) {
        print_size(entries, index);
        if (has_option(kListTime)) {
            const Details &details = entries.details[index];
            print(details.is_local ? "%s  " : "  %s", time_text(details.time).c_str());
        }
        print("%s \n", shown(entries, index).c_str());
    }
}

// The columns are filled downwards.
void print_columns(const Entries &entries) {
    constexpr std::size_t kColumnCount = 3;
    if (DIR_SHOWDOT != 0) print("\n.\t\t\t\t..");
    const std::size_t rows = (entries.size() + kColumnCount - 1) / kColumnCount;
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t index = row; index < entries.size(); index += rows) {
            print_size(entries, index);
            if (has_option(kListTime)) print("%s  ", time_text(entries.details[index].time).c_str());
            print("%s", shown(entries, index).c_str());
        }
        print("\n");
    }
}

void print_long_local(const Details &details) {
    const mode_t type = details.mode & S_IFMT;
    print("%s%s", type == S_IFREG ? "-" : type == S_IFDIR ? "d" : "", owner_permissions(details.mode).c_str());
    print("  %lu", static_cast<unsigned long>(details.links));
    print("  %hd", static_cast<short>(details.uid));
    print("  %hd", static_cast<short>(details.gid));
    print("  %s", format_I64d(static_cast<int64_t>(details.size)).c_str());
    print("  %s", time_text(details.time).c_str());
}

void print_long_remote(const Details &details) {
    const mode_t type = details.mode & S_IFMT;
    const char *kind = type == S_IFREG ? "-" : type == S_IFDIR ? "d" : "";
    print("%s%s  %u  %u  %llu %s", kind, all_permissions(details.mode & ~uint32_t{S_IFMT}).c_str(), details.uid,
          details.gid, static_cast<unsigned long long>(details.size), time_text(details.time).c_str());
}

// Every entry begins with its line feed and ends without one.
void print_long(const Entries &entries) {
    if (entries.names.empty() && DIR_SHOWDOT != 0) print("\n.\n..");
    for (std::size_t index = 0; index < entries.size(); ++index) {
        const Details &details = entries.details[index];
        print("\n");
        print_size(entries, index);
        if (details.is_local) {
            print_long_local(details);
        } else {
            print_long_remote(details);
        }
        print("  %s", shown(entries, index).c_str());
    }
}

}  // namespace

bool shows_attributes() {
    return DIR_LTYPE == kLong || has_option(kListDirectoriesOnly) || has_option(kListTime) || has_option(kListSize);
}

bool print_listing(const PathBuffer &path, const NameList &names, Listed listed) {
    Entries entries{names, isatty(fileno(output_stream())) != 0, {}, {}};
    bool complete = false;
    try {
        complete = collect_entries(path, listed, entries);
    } catch (const std::bad_alloc &) {
        entries.details = {};
        const std::size_t each = sizeof(Details) + sizeof(uint32_t);
        trace_message("read_dir", Message::out_of_memory, static_cast<unsigned long>(names.size() * each));
        return false;
    }
    switch (DIR_LTYPE) {
        case kNamePerLine:
            print_name_per_line(entries);
            break;
        case kColumns:
            print_columns(entries);
            break;
        default:
            print_long(entries);
            break;
    }
    return complete;
}
