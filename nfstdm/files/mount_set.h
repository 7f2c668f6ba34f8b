// SPDX-License-Identifier: Apache-2.0
// The mounts of a session, as tslnfstab gives them.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "nfstdm/files/mounted_volume.h"
#include "nfstdm/mounts/mount_table.h"

namespace nfstdm {

class MountSet {
  public:
    // No server is contacted yet. The loop must outlive the object.
    MountSet(EventLoop &loop, MountTable table, VolumeFactory open_volume,
             const TimeSource &now = EventLoop::Clock::now);
    MountSet(const MountSet &) = delete;
    MountSet &operator=(const MountSet &) = delete;

    // The mount that serves a path (its components, without ".."), and the number of components of its mount point.
    struct Found {
        MountedVolume *mount = nullptr;  // null: local
        std::size_t depth = 0;
    };
    Found find(std::span<const std::string> path) const;
    const MountTable &table() const { return table_; }

    // By the mount's number in the table.
    std::size_t size() const { return volumes_.size(); }
    MountedVolume &mount(std::size_t number) const { return *volumes_[number]; }

    // For each: see MountedVolume.
    void expect_others();
    void forget_handles();
    // Leaves all servers at the same time, and waits for that.
    void detach();

  private:
    EventLoop &loop_;
    MountTable table_;
    VolumeFactory open_volume_;
    std::vector<std::unique_ptr<MountedVolume>> volumes_;  // as table_.mounts()
};

}  // namespace nfstdm
