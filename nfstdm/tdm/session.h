// SPDX-License-Identifier: Apache-2.0
// What tdm_init opens and tdm_fini closes.
#pragma once

#include <cstdint>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/files/mount_set.h"
#include "nfstdm/files/open_files.h"
#include "nfstdm/files/path_operations.h"
#include "nfstdm/mounts/tslnfstab.h"
#include "nfstdm/tdm/io_queue.h"

namespace nfstdm {

class Session {
  public:
    // umask: permission bits that files and directories made here do not get. No server is contacted. With servers that
    // could not be read, every operation on a path fails with the reason.
    Session(Result<Tslnfstab> servers, VolumeFactory open_volume, uint32_t umask);
    // In a forked child, what takes the place of the parent's session: the same configuration, nothing open, and
    // identifiers that the parent's session has not given. The parent's is only read.
    Session(const Session &parents, VolumeFactory open_volume);

    const Status &usable() const { return usable_; }
    OpenFiles &files() { return files_; }
    PathOperations &paths() { return paths_; }
    IoQueue &io() { return io_; }
    const MountSet &mounts() const { return mounts_; }

    // Brings every accepted write to stable storage and gives the first failure. What others did meanwhile shows
    // afterwards: nothing that was learnt before is used again.
    Status barrier();

    // Brings every accepted write to stable storage, completes every request and leaves every server. Gives the first
    // failure; the session can only be destroyed afterwards.
    Status finish();

  private:
    EventLoop loop_;
    Status usable_;
    const uint32_t umask_;
    MountSet mounts_;
    OpenFiles files_;
    PathOperations paths_;
    IoQueue io_;
};

}  // namespace nfstdm
