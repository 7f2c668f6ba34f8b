// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/session.h"

#include <utility>

namespace nfstdm {
namespace {

constexpr uint32_t kFileMode = 0666;
constexpr uint32_t kDirectoryMode = 0777;

MountTable table_of(Result<Tslnfstab> &servers) {
    return servers.ok() ? MountTable(std::move(servers.value().servers)) : MountTable();
}

}  // namespace

Session::Session(Result<Tslnfstab> servers, VolumeFactory open_volume, uint32_t umask)
    : usable_(servers.status()),
      umask_(umask),
      mounts_(loop_, table_of(servers), std::move(open_volume)),
      files_(mounts_, kFileMode & ~umask),
      paths_(mounts_, kDirectoryMode & ~umask),
      io_(loop_, files_) {}

Session::Session(const Session &parents, VolumeFactory open_volume)
    : usable_(parents.usable_),
      umask_(parents.umask_),
      mounts_(loop_, parents.mounts_.table(), std::move(open_volume)),
      files_(mounts_, kFileMode & ~umask_, parents.files_.next_identifier()),
      paths_(mounts_, kDirectoryMode & ~umask_),
      io_(loop_, files_) {
    mounts_.expect_others();
}

Status Session::barrier() {
    Status first = files_.flush_all();
    files_.forget_expected();
    mounts_.forget_handles();
    return first;
}

// Requests may wait for a server that never answers, so the volumes are left before they are waited for: that completes
// them with a failure.
Status Session::finish() {
    Status first = files_.flush_all();
    mounts_.detach();
    io_.complete_all();
    return first;
}

}  // namespace nfstdm
