// SPDX-License-Identifier: Apache-2.0
// The commands that ask for servers by name, and the one that removes one: getserverlist, display_server,
// delete_server.
#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tslwnfs/config/config.h"
#include "tslwnfs/config/reading.h"
#include "tslwnfs/config/server_deletion.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/config/warning.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr char kDeletion[] = "delete_server";

void print_line(std::string_view text) {
    print("%.*s\n", static_cast<int>(text.size()), text.data());
}

void print_unknown_server(const char *server) {
    print("Requested server:%s is not present in tslnfstab\n", server);
}

// The first line of the block that holds a server's line: the one behind the last begin marker ahead of it, even if
// that marker's block has ended before. Nothing for an unknown server.
std::optional<std::size_t> block_of(const std::vector<std::string_view> &lines, std::string_view server) {
    std::size_t begin = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (is_block_begin(lines[i])) begin = i + 1;
        const auto setting = parse_setting(lines[i]);
        if (setting && setting->is_server(server)) return begin;
    }
    return std::nullopt;
}

// The first line of a server, and how many server lines stand ahead of it.
struct ServerLine {
    std::size_t line = 0;
    std::size_t number = 0;
};

std::optional<ServerLine> server_line(const std::vector<std::string_view> &lines, std::string_view server) {
    ServerLine found;
    for (; found.line < lines.size(); ++found.line) {
        const auto setting = parse_setting(lines[found.line]);
        if (!setting || !setting->is_server()) continue;
        if (setting->is_server(server)) return found;
        ++found.number;
    }
    return std::nullopt;
}

// What a deletion takes that it was not meant to take.
std::string surprise(const ServerDeletion &deletion, const std::string &server) {
    if (deletion.holds_server) return "the block of server " + server + " is that of another server too";
    return "the line of server " + server + " does not stand in the block of its number";
}

std::string consequence(const ServerDeletion &deletion, bool removes_something) {
    if (!removes_something) return "nothing is removed";
    std::string names;
    for (const auto &name : deletion.others)
        names += (names.empty() ? "" : ", ") + name;
    return (names.empty() ? "another block" : "the block of server " + names) +
           " is removed; tslnfstab.old is the file as it was";
}

// A block replaces the one that its server had, and with it exports that it does not have.
void warn_of_lost_mounts(std::string_view before, std::string_view after, const char *server) {
    const auto left = mount_points_of(after);
    std::string lost;
    for (const auto &mount_point : mount_points_of(before)) {
        if (std::ranges::find(left, mount_point) != left.end()) continue;
        lost += (lost.empty() ? "" : ", ") + mount_point;
    }
    if (lost.empty()) return;
    terminal::say("warning: the block of server " + std::string(server) +
                  " is replaced, and these mount points are gone: " + lost +
                  "; all exports of a server go into one -em, or are added by mount");
}

// A file that was saved with carriage returns at the ends of its lines has them in its values. Empty when that is not
// why a server is not found.
std::string hiding(std::string_view file, const std::string &server) {
    if (!server_line(split_lines(file), server + "\r")) return {};
    constexpr const char *kWhy =
        " ends in a carriage return, which is part of its name: save tslnfstab with plain line ends";
    return "the line of server " + server + kWhy;
}

// Whether a server that is not found may get a block.
bool may_be_new(TslnfstabRewrite &rewrite, const char *server) {
    const std::string hidden = hiding(rewrite.contents(), server);
    if (hidden.empty()) return true;
    if (is_strict(Strict::options)) {
        trace_failure(kDeletion, "%s", hidden.c_str());
        rewrite.delete_backup();
        return false;
    }
    warn(kDeletion, hidden + "; there are two blocks for it now");
    return true;
}

// Whether what a deletion takes may go. What it was not meant to take is kept beside the file first, and told.
bool may_go(TslnfstabRewrite &rewrite, const ServerDeletion &deletion, const char *server) {
    if (deletion.is_as_meant()) return true;
    const std::string what = surprise(deletion, server);
    if (is_strict(Strict::options)) {
        trace_failure(kDeletion, "%s, so that nothing is changed", what.c_str());
        rewrite.delete_backup();
        return false;
    }
    const bool removes_something = deletion.file.size() != rewrite.contents().size();
    if (removes_something && !rewrite.keep_old()) {
        rewrite.delete_backup();
        return false;
    }
    tslwnfswrf(3, kDeletion, "%s\n", what.c_str());
    terminal::say("warning: " + what + ": " + consequence(deletion, removes_something));
    return true;
}

}  // namespace

uint32_t getserverlist() {
    PathBuffer path;
    std::string file;
    if (!find_tslnfstab("getserverlist", path, kShortNameBuffer)) return 1;
    if (!read_whole_file(path.c_str(), file)) {
        print_not_opened(path.c_str());
        return 1;
    }
    // A line without a value shows the one before it again.
    std::string_view name;
    for (const auto line : split_lines(file)) {
        const auto setting = parse_setting(line);
        if (!setting || !setting->is_server()) continue;
        if (!setting->value.empty()) name = setting->value;
        print_line(name);
    }
    return 0;
}

uint32_t display_server(const char *server) {
    PathBuffer path;
    std::string file;
    if (!find_tslnfstab("display_server", path)) return 1;
    if (!read_whole_file(path.c_str(), file)) {
        print("fopen failed for %s\n", path.c_str());
        return 1;
    }
    const auto lines = split_lines(file);
    const auto begin = block_of(lines, server);
    if (!begin) {
        print_unknown_server(server);
        return 0;
    }
    for (std::size_t i = *begin; i < lines.size() && !is_block_end(lines[i]); ++i) {
        const std::string_view content = line_content(lines[i]);
        if (!content.empty()) print_line(content);
    }
    return 0;
}

std::optional<ServerDeletion> without_server(std::string_view file, std::string_view server) {
    const auto lines = split_lines(file);
    const auto own = server_line(lines, server);
    if (!own) return std::nullopt;

    ServerDeletion deletion;
    std::size_t begins = 0;
    bool leaving_out = false;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (is_block_begin(lines[i]) && begins++ == own->number) leaving_out = true;
        if (!leaving_out) deletion.file += lines[i];
        const auto setting = parse_setting(lines[i]);
        if (leaving_out && i == own->line) {
            deletion.holds_server = true;
        } else if (leaving_out && setting && setting->is_server()) {
            deletion.others.emplace_back(setting->value);
        }
        if (is_block_end(lines[i])) leaving_out = false;
    }
    return deletion;
}

uint32_t delete_server(const char *server, int32_t verbose) {
    using Rewrite = TslnfstabRewrite;
    ConfigurationLock lock;
    Rewrite rewrite(kDeletion, lock);
    if (!rewrite.begin(verbose != 0 ? Rewrite::UnreadableFile::is_printed : Rewrite::UnreadableFile::is_silent)) {
        return 1;
    }
    const auto deletion = without_server(rewrite.contents(), server);
    if (!deletion) {
        if (verbose != 0) print_unknown_server(server);
        if (const auto hidden = hiding(rewrite.contents(), server); !hidden.empty()) warn(kDeletion, hidden);
        static_cast<void>(rewrite.keep_empty_backup());
        return 0;
    }
    if (!may_go(rewrite, *deletion, server)) return 1;
    return rewrite.replace_with(deletion->file) == Rewrite::Outcome::not_written ? 1 : 0;
}

Replacement replace_server(const char *server, std::string_view block, ConfigurationLock &lock) {
    TslnfstabRewrite rewrite(kDeletion, lock);
    if (!rewrite.begin(TslnfstabRewrite::UnreadableFile::is_silent)) return Replacement::not_there;
    auto deletion = without_server(rewrite.contents(), server);
    if (!deletion) {
        if (!may_be_new(rewrite, server)) return Replacement::refused;
        static_cast<void>(rewrite.keep_empty_backup());
        return Replacement::not_there;
    }
    if (!may_go(rewrite, *deletion, server)) return Replacement::refused;
    const std::string file = deletion->file.append(separator_behind(deletion->file)).append(block);
    if (rewrite.replace_with(file) != TslnfstabRewrite::Outcome::replaced) return Replacement::not_there;
    warn_of_lost_mounts(rewrite.contents(), file, server);
    return Replacement::done;
}
