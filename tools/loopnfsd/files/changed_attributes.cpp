// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/files/changed_attributes.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace loopnfsd {

namespace {

using nfstdm::nfs3::TimeHow;

timespec time_to_set(const ChangedTime &time) {
    switch (time.how) {
        case TimeHow::server_time:
            return {0, UTIME_NOW};
        case TimeHow::client_time:
            return {time.seconds, static_cast<long>(time.nanoseconds)};
        default:
            return {0, UTIME_OMIT};
    }
}

NfsStatus change_owner(const Object &object, const ChangedAttributes &changed) {
    const uid_t uid = changed.uid.value_or(object.status.stx_uid);
    const gid_t gid = changed.gid.value_or(object.status.stx_gid);
    if (uid == object.status.stx_uid && gid == object.status.stx_gid) return NfsStatus::ok;
    const int done = fchownat(object.at(), object.name.c_str(), uid, gid, AT_SYMLINK_NOFOLLOW);
    return done == 0 ? NfsStatus::ok : status_of_errno(errno);
}

NfsStatus change_mode(const Object &object, uint32_t mode) {
    if (object.is_link()) return NfsStatus::ok;  // a link's mode means nothing and cannot be set
    const int done = fchmodat(object.at(), object.name.c_str(), mode & kModeBits, AT_SYMLINK_NOFOLLOW);
    return done == 0 ? NfsStatus::ok : status_of_errno(errno);
}

NfsStatus change_times(const Object &object, const ChangedAttributes &changed) {
    const std::array times{time_to_set(changed.access), time_to_set(changed.modification)};
    const int done = utimensat(object.at(), object.name.c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
    return done == 0 ? NfsStatus::ok : status_of_errno(errno);
}

}  // namespace

NfsStatus apply_changes(const Object &object, const ChangedAttributes &changed) {
    // The owner first, since changing it takes set-id bits away; the times last, since everything else touches them.
    NfsStatus status = NfsStatus::ok;
    if (changed.uid || changed.gid) status = change_owner(object, changed);
    if (status == NfsStatus::ok && changed.mode) status = change_mode(object, *changed.mode);
    if (status == NfsStatus::ok && changed.times()) status = change_times(object, changed);
    return status;
}

}  // namespace loopnfsd
