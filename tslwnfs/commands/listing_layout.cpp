// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/listing_layout.h"

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

namespace {

enum Layout : int32_t { kNamePerLine = 0, kColumns = 1, kLong = 2 };
enum TimeShown : int32_t { kModification = 0, kStatusChange = 1, kAccess = 2 };

constexpr std::size_t kNameWidth = 31;

struct Entry {
    std::string shown;      // the name, padded; look-ups are made with the name itself
    AttrResult attributes;  // empty when the layout needs none
};

bool option(OptionBit bit) {
    return (COMMAND_OPTION & bit) != 0;
}

bool needs_attributes() {
    return DIR_LTYPE == kLong || option(kListDirectoriesOnly) || option(kListTime) || option(kListSize);
}

// A name that is wider than the column gets the whole column's blanks behind it, so that it still stands apart.
std::string padded(const std::string &name) {
    const std::size_t blanks = name.size() > kNameWidth ? kNameWidth : kNameWidth - name.size();
    std::string shown;
    shown.reserve(name.size() + blanks);
    return shown.append(name).append(blanks, ' ');
}

// A path that is too long is as good as one that cannot be asked about.
Kind fetch_attributes(const PathBuffer &path, const std::string &name, Listed listed, AttrResult &attributes) {
    PathBuffer full = path;
    if (listed == Listed::directory && !join_path("read_dir", path, name, full)) return Kind::missing;
    const Kind kind = kind_of(full, attributes);
    return attributes.empty() ? Kind::missing : kind;
}

// Returns false when some entry could not be asked about.
bool collect_entries(const PathBuffer &path, const NameList &names, Listed listed, std::vector<Entry> &entries) {
    bool complete = true;
    entries.reserve(names.size());
    for (const std::string &name : names) {
        Entry entry;
        if (needs_attributes()) {
            const Kind kind = fetch_attributes(path, name, listed, entry.attributes);
            if (kind == Kind::missing) complete = false;
            if (kind == Kind::missing || (kind != Kind::directory && option(kListDirectoriesOnly))) continue;
        }
        if (DIR_SHOWDOT == 0 && name.starts_with('.')) continue;
        entry.shown = padded(shown_name(name));
        entries.push_back(std::move(entry));
    }
    if (option(kListReverse)) std::reverse(entries.begin(), entries.end());
    return complete;
}

void print_size(const AttrResult &attributes) {
    if (!option(kListSize)) return;
    if (attributes.is_local != 0) {
        print("%s  ", format_I64d(attributes.local->st_size).c_str());
    } else {
        print("%llu  ", static_cast<unsigned long long>(attributes.remote->size));
    }
}

std::string modification_text(const AttrResult &attributes) {
    return time_text(attributes.is_local != 0 ? static_cast<uint64_t>(attributes.local->st_mtime)
                                              : attributes.remote->modification_seconds);
}

void print_name_per_line(const std::vector<Entry> &entries) {
    if (DIR_SHOWDOT != 0) print(". \n .. \n");
    for (const Entry &entry : entries) {
        print_size(entry.attributes);
        if (option(kListTime)) {
            const std::string time = modification_text(entry.attributes);
            print(entry.attributes.is_local != 0 ? "%s  " : "  %s", time.c_str());
        }
        print("%s \n", entry.shown.c_str());
    }
}

// The columns are filled downwards.
void print_columns(const std::vector<Entry> &entries) {
    constexpr std::size_t kColumnCount = 3;
    if (DIR_SHOWDOT != 0) print("\n.\t\t\t\t..");
    const std::size_t rows = (entries.size() + kColumnCount - 1) / kColumnCount;
    for (std::size_t row = 0; row < rows; ++row) {
        for (std::size_t index = row; index < entries.size(); index += rows) {
            print_size(entries[index].attributes);
            if (option(kListTime)) print("%s  ", modification_text(entries[index].attributes).c_str());
            print("%s", entries[index].shown.c_str());
        }
        print("\n");
    }
}

void print_long_local(const struct stat &status) {
    const mode_t type = status.st_mode & S_IFMT;
    print("%s%s", type == S_IFREG ? "-" : type == S_IFDIR ? "d" : "", owner_permissions(status.st_mode).c_str());
    print("  %lu", static_cast<unsigned long>(status.st_nlink));
    print("  %hd", static_cast<short>(status.st_uid));
    print("  %hd", static_cast<short>(status.st_gid));
    print("  %s", format_I64d(status.st_size).c_str());
    time_t time = status.st_mtime;
    if (DIR_LTIMETYPE == kStatusChange) time = status.st_ctime;
    if (DIR_LTIMETYPE == kAccess) time = status.st_atime;
    print("  %s", time_text(static_cast<uint64_t>(time)).c_str());
}

void print_long_remote(const TdmAttributes &attributes) {
    const char *kind = "";
    if (attributes.type == TDM_TYPE_REGULAR) kind = "-";
    if (attributes.type == TDM_TYPE_DIRECTORY) kind = "d";
    uint64_t time = attributes.modification_seconds;
    if (DIR_LTIMETYPE == kStatusChange) time = attributes.change_seconds;
    // Only the log has the access time; standard output shows the status change for both.
    if (DIR_LTIMETYPE == kAccess) time = output_is_log() ? attributes.access_seconds : attributes.change_seconds;
    print("%s%s  %u  %u  %llu %s", kind, all_permissions(attributes.permissions).c_str(), attributes.uid,
          attributes.gid, static_cast<unsigned long long>(attributes.size), time_text(time).c_str());
}

// Every entry begins with its line feed and ends without one.
void print_long(const std::vector<Entry> &entries, bool empty_directory) {
    if (empty_directory && DIR_SHOWDOT != 0) print("\n.\n..");
    for (const Entry &entry : entries) {
        print("\n");
        print_size(entry.attributes);
        if (entry.attributes.is_local != 0) {
            print_long_local(*entry.attributes.local);
        } else {
            print_long_remote(*entry.attributes.remote);
        }
        print("  %s", entry.shown.c_str());
    }
}

}  // namespace

bool print_listing(const PathBuffer &path, const NameList &names, Listed listed) {
    std::vector<Entry> entries;
    bool complete = false;
    try {
        complete = collect_entries(path, names, listed, entries);
    } catch (const std::bad_alloc &) {
        std::vector<Entry>().swap(entries);
        trace_message("read_dir", Message::out_of_memory, static_cast<unsigned long>(names.size() * sizeof(Entry)));
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
            print_long(entries, names.empty());
            break;
    }
    return complete;
}
