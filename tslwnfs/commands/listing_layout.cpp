// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/listing_layout.h"

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <new>
#include <string_view>

#include "tslwnfs/commands/attribute_block.h"
#include "tslwnfs/commands/attributes.h"
#include "tslwnfs/commands/listed_entries.h"
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
bool collect_entries(const PathBuffer &path, const NameList &names, Listed listed, ListedEntries &entries) {
    bool complete = true;
    const bool detailed = shows_attributes();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string_view name = names[i];
        ListedEntries::Entry entry{i, {}};
        if (detailed) {
            AttrResult attributes;
            const Kind kind = fetch_attributes(path, name, listed, attributes);
            if (kind == Kind::missing) complete = false;
            if (kind == Kind::missing || (kind != Kind::directory && has_option(kListDirectoriesOnly))) continue;
            entry.details = details_of(attributes);
        }
        if (DIR_SHOWDOT != 0 || !name.starts_with('.')) entries.add(entry);
    }
    return complete;
}

// What is printed.
struct Listing {
    const NameList &names;
    const ListedEntries &entries;
    const bool on_screen;

    std::size_t size() const { return entries.size(); }
};

// Goes through the entries of a listing in the order in which they are shown.
class Cursor {
  public:
    explicit Cursor(const Listing &listing) : listing_(listing), entries_(listing.entries) {}

    void go_to(std::size_t index) {
        entry_ = entries_.at(has_option(kListReverse) ? listing_.size() - 1 - index : index);
    }
    const Details &details() const { return entry_.details; }
    std::string name() const { return padded(shown_name(listing_.names[entry_.place]), listing_.on_screen); }

  private:
    const Listing &listing_;
    ListedEntries::Reader entries_;
    ListedEntries::Entry entry_;
};

void print_size(const Details &details) {
    if (!has_option(kListSize)) return;
    if (details.is_local) {
        print("%s  ", format_I64d(static_cast<int64_t>(details.size)).c_str());
    } else {
        print("%llu  ", static_cast<unsigned long long>(details.size));
    }
}

void print_name_per_line(const Listing &listing) {
    if (DIR_SHOWDOT != 0) print(". \n .. \n");
    Cursor entry(listing);
    for (std::size_t index = 0; index < listing.size(); ++index) {
        entry.go_to(index);
        const Details &details = entry.details();
        print_size(details);
        if (has_option(kListTime)) print(details.is_local ? "%s  " : "  %s", time_text(details.time).c_str());
        print("%s \n", entry.name().c_str());
    }
}

// The columns are filled downwards.
void print_columns(const Listing &listing) {
    std::array columns = {Cursor(listing), Cursor(listing), Cursor(listing)};
    if (DIR_SHOWDOT != 0) print("\n.\t\t\t\t..");
    const std::size_t rows = (listing.size() + columns.size() - 1) / columns.size();
    for (std::size_t row = 0; row < rows; ++row) {
        std::size_t index = row;
        for (Cursor &entry : columns) {
            if (index >= listing.size()) break;
            entry.go_to(index);
            print_size(entry.details());
            if (has_option(kListTime)) print("%s  ", time_text(entry.details().time).c_str());
            print("%s", entry.name().c_str());
            index += rows;
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
void print_long(const Listing &listing) {
    if (listing.names.empty() && DIR_SHOWDOT != 0) print("\n.\n..");
    Cursor entry(listing);
    for (std::size_t index = 0; index < listing.size(); ++index) {
        entry.go_to(index);
        const Details &details = entry.details();
        print("\n");
        print_size(details);
        if (details.is_local) {
            print_long_local(details);
        } else {
            print_long_remote(details);
        }
        print("  %s", entry.name().c_str());
    }
}

void print_layout(const Listing &listing) {
    switch (DIR_LTYPE) {
        case kNamePerLine:
            print_name_per_line(listing);
            break;
        case kColumns:
            print_columns(listing);
            break;
        default:
            print_long(listing);
            break;
    }
}

}  // namespace

bool shows_attributes() {
    return DIR_LTYPE == kLong || has_option(kListDirectoriesOnly) || has_option(kListTime) || has_option(kListSize);
}

bool print_listing(const PathBuffer &path, const NameList &names, Listed listed) {
    ListedEntries entries;
    try {
        const bool complete = collect_entries(path, names, listed, entries);
        print_layout({names, entries, isatty(fileno(output_stream())) != 0});
        return complete;
    } catch (const std::bad_alloc &) {
        const auto bytes = static_cast<unsigned long>(entries.bytes());
        entries = {};
        trace_message("read_dir", Message::out_of_memory, bytes);
        return false;
    }
}
