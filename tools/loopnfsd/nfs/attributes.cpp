// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs/attributes.h"

#include <fcntl.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace loopnfsd {

namespace {

using nfstdm::nfs3::TimeHow;
using nfstdm::xdr::Reader;
using nfstdm::xdr::Writer;

constexpr uint32_t kModeBits = 07777;
constexpr uint64_t kBlock = 512;  // unit of stx_blocks
constexpr uint32_t kNanosecondsEnd = 1'000'000'000;

// ftype3
uint32_t type_of(uint32_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return 2;
        case S_IFBLK:
            return 3;
        case S_IFCHR:
            return 4;
        case S_IFLNK:
            return 5;
        case S_IFSOCK:
            return 6;
        case S_IFIFO:
            return 7;
        default:
            return 1;
    }
}

void put_time(Writer &out, const statx_timestamp &time) {
    out.put_u32(static_cast<uint32_t>(time.tv_sec));
    out.put_u32(time.tv_nsec);
}

bool get_optional(Reader &in, std::optional<uint32_t> &value) {
    bool given = false;
    uint32_t word = 0;
    if (!in.get_bool(given)) return false;
    if (!given) return true;
    if (!in.get_u32(word)) return false;
    value = word;
    return true;
}

bool get_optional(Reader &in, std::optional<uint64_t> &value) {
    bool given = false;
    uint64_t number = 0;
    if (!in.get_bool(given)) return false;
    if (!given) return true;
    if (!in.get_u64(number)) return false;
    value = number;
    return true;
}

bool get_changed_time(Reader &in, ChangedTime &time) {
    uint32_t how = 0;
    if (!in.get_u32(how) || how > static_cast<uint32_t>(TimeHow::client_time)) return false;
    time.how = static_cast<TimeHow>(how);
    if (time.how != TimeHow::client_time) return true;
    return in.get_u32(time.seconds) && in.get_u32(time.nanoseconds) && time.nanoseconds < kNanosecondsEnd;
}

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

void put_attributes(Writer &out, const struct statx &status) {
    out.put_u32(type_of(status.stx_mode));
    out.put_u32(status.stx_mode & kModeBits);
    out.put_u32(status.stx_nlink);
    out.put_u32(status.stx_uid);
    out.put_u32(status.stx_gid);
    out.put_u64(status.stx_size);
    out.put_u64(status.stx_blocks * kBlock);
    out.put_u32(status.stx_rdev_major);
    out.put_u32(status.stx_rdev_minor);
    out.put_u64(makedev(status.stx_dev_major, status.stx_dev_minor));
    out.put_u64(status.stx_ino);
    put_time(out, status.stx_atime);
    put_time(out, status.stx_mtime);
    put_time(out, status.stx_ctime);
}

void put_post_op_attributes(Writer &out, const struct statx *status) {
    out.put_bool(status != nullptr);
    if (status != nullptr) put_attributes(out, *status);
}

void put_pre_op_attributes(Writer &out, const struct statx *status) {
    out.put_bool(status != nullptr);
    if (status == nullptr) return;
    out.put_u64(status->stx_size);
    put_time(out, status->stx_mtime);
    put_time(out, status->stx_ctime);
}

bool get_changed_attributes(Reader &in, ChangedAttributes &changed) {
    return get_optional(in, changed.mode) && get_optional(in, changed.uid) && get_optional(in, changed.gid) &&
           get_optional(in, changed.size) && get_changed_time(in, changed.access) &&
           get_changed_time(in, changed.modification);
}

NfsStatus apply_changes(const Object &object, const ChangedAttributes &changed) {
    // The owner first, since changing it takes set-id bits away; the times last, since everything else touches them.
    NfsStatus status = NfsStatus::ok;
    if (changed.uid || changed.gid) status = change_owner(object, changed);
    if (status == NfsStatus::ok && changed.mode) status = change_mode(object, *changed.mode);
    if (status == NfsStatus::ok && changed.times()) status = change_times(object, changed);
    return status;
}

}  // namespace loopnfsd
