// SPDX-License-Identifier: Apache-2.0
// The commands that ask for servers by name, and the one that removes one: getserverlist, display_server,
// delete_server.
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tslwnfs/config/config.h"
#include "tslwnfs/config/server_deletion.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/frontend/output.h"
#include "tslwnfs/frontend/trace.h"

namespace {

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
    std::optional<std::size_t> index;
    std::size_t servers = 0, blocks = 0;
    for (const auto line : lines) {
        if (is_block_begin(line)) ++blocks;
        const auto setting = parse_setting(line);
        if (!setting || !setting->is_server()) continue;
        if (setting->is_server(server)) {
            index = servers;
            break;
        }
        ++servers;
    }
    if (!index) return std::nullopt;

    ServerDeletion deletion;
    deletion.counts_agree = blocks == *index + 1;
    std::size_t begins = 0;
    bool leaving_out = false;
    for (const auto line : lines) {
        if (is_block_begin(line) && begins++ == *index) leaving_out = true;
        if (!leaving_out) deletion.file += line;
        if (is_block_end(line)) leaving_out = false;
    }
    return deletion;
}

uint32_t delete_server(const char *server, int32_t verbose) {
    using Rewrite = TslnfstabRewrite;
    Rewrite rewrite("delete_server");
    if (!rewrite.begin(verbose != 0 ? Rewrite::UnreadableFile::is_printed : Rewrite::UnreadableFile::is_silent)) {
        return 1;
    }
    const auto deletion = without_server(rewrite.contents(), server);
    if (!deletion) {
        if (verbose != 0) print_unknown_server(server);
        static_cast<void>(rewrite.keep_empty_backup());
        return 0;
    }
    if (!deletion->counts_agree) {
        trace_failure("delete_server", "the line of server %s does not stand in the block of its number", server);
    }
    return rewrite.replace_with(deletion->file, Rewrite::VanishedFile::is_traced);
}
