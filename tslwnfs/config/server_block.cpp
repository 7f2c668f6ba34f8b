// SPDX-License-Identifier: Apache-2.0
// createtslnfstab: one server's block at the end of tslnfstab.
#include "tslwnfs/config/server_block.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>

#include "tslwnfs/config/config.h"
#include "tslwnfs/config/tslnfstab_file.h"
#include "tslwnfs/config/tslnfstab_lines.h"
#include "tslwnfs/config/whole_file.h"
#include "tslwnfs/frontend/messages.h"
#include "tslwnfs/frontend/output.h"
#include "tslwnfs/frontend/trace.h"

namespace {

constexpr char kFunction[] = "createtslnfstab";

void put(std::string &block, const char *key, const std::optional<std::string> &value) {
    if (value) block.append(key).append(": ").append(*value).append("\n");
}

void put(std::string &block, const char *key, std::optional<uint32_t> value) {
    if (value) put(block, key, std::optional(std::to_string(*value)));
}

void put(std::string &block, const LocalPathPair &pair) {
    block.append("local: ").append(pair.local).append(" \t path: ").append(pair.path).append("\n");
}

void put(std::string &block, const ExportEntry &entry) {
    block.append("export: ").append(entry.export_path).append(" \t mount: ").append(entry.mount_point);
    if (entry.security) block.append("\tsecurity: ").append(*entry.security);
    block.append("\n");
}

template <class Entry>
void put_all(std::string &block, const std::optional<std::vector<Entry>> &entries) {
    if (!entries) return;
    for (const auto &entry : *entries)
        put(block, entry);
}

template <class Entry>
bool is_too_long(const std::optional<std::vector<Entry>> &entries) {
    return entries && entries->size() > ServerBlock::kListMaximum;
}

// True unless the file is there and nothing may be added to it. Creates nothing.
bool can_append(const char *path) {
    const int descriptor = open(path, O_WRONLY | O_APPEND | O_CLOEXEC);
    if (descriptor < 0) return errno == ENOENT;
    close(descriptor);
    return true;
}

// A last line without a line feed gets one first: a marker glued to it would not be recognised.
std::string separator_for(const char *path) {
    std::string file;
    return read_whole_file(path, file) && !file.empty() && !file.ends_with('\n') ? "\n" : "";
}

}  // namespace

// The user and the group stand ahead of the server line; readers look for the begin marker first.
std::string server_block_text(const ServerBlock &server) {
    std::string block = std::string(kBlockBegin) + "\n";
    put(block, "uid", server.uid);
    put(block, "gid", server.gid);
    put(block, "server", server.server);
    put_all(block, server.pairs);
    put_all(block, server.exports);
    put(block, "version", server.version);
    put(block, "community", server.community);
    put(block, "rdmaport", server.rdmaport);
    put(block, "mnt_timeout", server.mnt_timeout);
    put(block, "security_default", server.security_default);
    put(block, "management", server.management);
    return block.append(kBlockEnd).append("\n");
}

uint32_t createtslnfstab() {
    if (!tab_info.server) {
        lwrf("%s", "Server name is mandatory for createtslnfstab function\n");
        return 1;
    }
    // Everything that can refuse the new block comes before the old one of that server goes.
    if (is_too_long(tab_info.pairs) || is_too_long(tab_info.exports)) {
        trace_failure(kFunction, "more than %zu entries in a list", ServerBlock::kListMaximum);
        return 1;
    }
    PathBuffer path;
    if (!find_tslnfstab(kFunction, path)) return 1;
    if (!can_append(path.c_str())) {
        trace_message(kFunction, Message::file_unopenable, path.c_str());
        return 1;
    }
    static_cast<void>(delete_server(tab_info.server->c_str(), 0));
    return append_to_tslnfstab(kFunction, path, separator_for(path.c_str()) + server_block_text(tab_info));
}
