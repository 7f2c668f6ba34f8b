// SPDX-License-Identifier: Apache-2.0
// Which mount serves a path.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "nfstdm/mounts/path_text.h"
#include "nfstdm/volume/server_config.h"

namespace nfstdm {

// One export where it is mounted.
struct Mount {
    Components point;          // the mount point's components
    std::size_t server = 0;    // index into MountTable::servers()
    std::size_t exported = 0;  // index into that server's exports
};

class MountTable {
  public:
    MountTable() = default;
    explicit MountTable(std::vector<ServerConfig> servers);

    const std::vector<ServerConfig> &servers() const { return servers_; }
    const std::vector<Mount> &mounts() const { return mounts_; }

    // The mount (an index into mounts()) whose point is the longest prefix of the components at a component boundary;
    // nothing when the path is local. Of two mounts on one point the later in the file counts. The components hold no
    // "..".
    std::optional<std::size_t> find(std::span<const std::string> path) const;

    const ServerConfig &server(const Mount &mount) const { return servers_[mount.server]; }
    const ServerExport &exported(const Mount &mount) const { return server(mount).exports[mount.exported]; }

  private:
    std::vector<ServerConfig> servers_;
    std::vector<Mount> mounts_;
};

}  // namespace nfstdm
