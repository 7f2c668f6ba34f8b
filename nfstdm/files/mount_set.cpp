// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/mount_set.h"

#include <utility>

namespace nfstdm {

MountSet::MountSet(EventLoop &loop, MountTable table, VolumeFactory open_volume, const TimeSource &now)
    : loop_(loop), table_(std::move(table)), open_volume_(std::move(open_volume)) {
    for (const Mount &mount : table_.mounts())
        volumes_.push_back(
            std::make_unique<MountedVolume>(loop, table_.server(mount), table_.exported(mount), open_volume_, now));
}

MountSet::Found MountSet::find(std::span<const std::string> path) const {
    const auto mount = table_.find(path);
    if (!mount) return {};
    return {volumes_[*mount].get(), table_.mounts()[*mount].point.size()};
}

void MountSet::expect_others() {
    for (const auto &volume : volumes_)
        volume->expect_others();
}

void MountSet::forget_handles() {
    for (const auto &volume : volumes_)
        volume->forget_handles();
}

void MountSet::detach() {
    const auto left = std::make_shared<std::size_t>(0);
    for (const auto &volume : volumes_)
        volume->detach([left](const Status &) { ++*left; });
    loop_.run_until([this, &left] { return *left == volumes_.size(); });
}

}  // namespace nfstdm
