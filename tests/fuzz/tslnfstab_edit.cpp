// SPDX-License-Identifier: Apache-2.0
// The commands that edit tslnfstab, and the one that adds to it. Three words, each ended by a zero byte, are a server,
// a port and a mount point; the rest is the file.
//
// An edit takes out or adds what it is for, and keeps every other byte; the block that createtslnfstab adds means to
// the storage library what was asked for, whatever stands ahead of it.
#include <string>

#include "nfstdm/mounts/tslnfstab.h"
#include "tests/fuzz/fuzz.h"
#include "tslwnfs/config/block_values.h"
#include "tslwnfs/config/mount_table.h"
#include "tslwnfs/config/rdma_edit.h"
#include "tslwnfs/config/server_deletion.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/options/server_block.h"

namespace {

using fuzz::require;

std::string joined(const std::vector<std::string_view> &lines) {
    std::string text;
    for (const auto line : lines)
        text += line;
    return text;
}

// Whether one text is the other without one piece of it, or the whole.
bool lacks_one_piece(std::string_view shorter, std::string_view longer) {
    const auto front = static_cast<std::size_t>(
        std::mismatch(shorter.begin(), shorter.end(), longer.begin(), longer.end()).first - shorter.begin());
    return longer.ends_with(shorter.substr(front));
}

void examine_lines(std::string_view file) {
    const auto lines = split_lines(file);
    require(joined(lines) == file, "the lines are the file");
    for (const auto line : lines) {
        require(!line.empty() && line.size() <= kLineMaximum, "a line is 1 to 1023 characters long");
        const auto setting = parse_setting(line);
        require(!setting || !setting->key.empty(), "a setting has a key");
    }
}

void examine_deletion(std::string_view file, std::string_view server) {
    const auto deletion = without_server(file, server);
    if (deletion) require(lacks_one_piece(deletion->file, file), "deleting a server takes out one piece");
}

void examine_rdma(std::string_view file, std::string_view server, std::string_view port) {
    const RdmaEdit with = with_rdma_port(file, server, port);
    require(lacks_one_piece(file, with.file), "enabling RDMA adds one piece at most");
    require(with.done || with.file == file, "an edit that is not done changes nothing");
    const RdmaEdit without = without_rdma_port(file, server);
    require(lacks_one_piece(without.file, file), "disabling RDMA takes out one piece at most");
    require(without.done || without.file == file, "an edit that is not done changes nothing");
}

// A word as the command line would have to give it for the block to be readable.
bool is_plain(std::string_view word) {
    return !word.empty() &&
           std::all_of(word.begin(), word.end(), [](char c) { return c > ' ' && c <= '~' && c != '#'; });
}

void examine_added_block(std::string_view file, std::string_view server, std::string_view mount_point) {
    if (!is_plain(server) || !is_plain(mount_point)) return;
    ServerBlock block;
    block.server = server;
    block.uid = 7;
    block.pairs.emplace().push_back({"10.0.0.1", "10.0.0.2"});
    block.exports.emplace().push_back({"/export", "/" + std::string(mount_point), std::nullopt});
    const auto text = std::string(file) + "\n" + server_block_text(block);
    const auto tab = nfstdm::read_tslnfstab(text);
    require(!tab.servers.empty(), "the added server is there");
    const nfstdm::ServerConfig &added = tab.servers.back();
    require(added.name == server && added.uid == 7U && !added.gid, "the added server is the one that was asked for");
    require(added.paths.size() == 1 && added.paths[0].path == "10.0.0.2", "the added server has its path");
    require(added.exports.size() == 1 || !added.problem.empty(), "the added server has its export or says why not");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const std::string_view server = input.text_until('\0');
    const std::string_view port = input.text_until('\0');
    const std::string_view mount_point = input.text_until('\0');
    const std::string_view file = input.text();
    examine_lines(file);
    examine_deletion(file, server);
    examine_rdma(file, server, port);
    examine_added_block(file, server, mount_point);
    static_cast<void>(without_mount(file, mount_point));
    return 0;
}
