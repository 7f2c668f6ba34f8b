// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/mount_table.h"

#include <algorithm>
#include <utility>

namespace nfstdm {

MountTable::MountTable(std::vector<ServerConfig> servers) : servers_(std::move(servers)) {
    for (std::size_t server = 0; server < servers_.size(); ++server) {
        const auto &exports = servers_[server].exports;
        for (std::size_t exported = 0; exported < exports.size(); ++exported)
            mounts_.push_back({split_path(exports[exported].mount_point), server, exported});
    }
}

std::optional<std::size_t> MountTable::find(std::span<const std::string> path) const {
    std::optional<std::size_t> best;
    for (std::size_t i = 0; i < mounts_.size(); ++i) {
        const auto &point = mounts_[i].point;
        const bool covers = point.size() <= path.size() && std::equal(point.begin(), point.end(), path.begin());
        if (covers && (!best || point.size() >= mounts_[*best].point.size())) best = i;
    }
    return best;
}

}  // namespace nfstdm
