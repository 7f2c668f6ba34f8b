// SPDX-License-Identifier: Apache-2.0
// tslnfstab as the storage library reads it.
//
// Whatever the file holds, what is made of it keeps the ranges that the rest of the library counts on, and what is told
// about it can be printed.
#include "nfstdm/mounts/tslnfstab.h"

#include "nfstdm/mounts/mount_table.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace nfstdm;
using fuzz::require;

bool is_printable(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

void examine(const ServerExport &exported) {
    require(path_is_absolute(exported.mount_point), "a mount point is absolute");
    for (const auto &component : split_path(exported.mount_point))
        require(component != "..", "a mount point climbs nowhere");
}

void examine(const ServerConfig &server) {
    require(!server.name.empty() || !server.problem.empty(), "a server without a name cannot be used");
    require(server.contact_timeout_seconds >= 1, "the first contact has a time");
    require(server.connections_per_path >= 1 && server.connections_per_path <= 16, "nconnect is 1 to 16");
    for (const auto &path : server.paths)
        require(!path.path.empty() || server.name.empty(), "every path leads somewhere");
    for (const auto &exported : server.exports)
        examine(exported);
}

void examine(const MountTable &table) {
    for (std::size_t i = 0; i < table.mounts().size(); ++i) {
        const Mount &mount = table.mounts()[i];
        Components below = mount.point;
        below.emplace_back("below");
        const auto found = table.find(below);
        require(found.has_value(), "a path under a mount point is on a mount");
        require(table.mounts()[*found].point.size() >= mount.point.size(), "the longest mount point decides");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const Tslnfstab tab = read_tslnfstab(fuzz::Input(data, size).text());
    for (const auto &remark : tab.remarks)
        require(is_printable(remark), "a remark can be printed");
    for (const auto &server : tab.servers)
        examine(server);
    examine(MountTable(tab.servers));
    return 0;
}
