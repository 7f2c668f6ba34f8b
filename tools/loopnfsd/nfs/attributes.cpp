// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs/attributes.h"

#include <sys/sysmacros.h>

#include "tools/loopnfsd/files/file_type.h"

namespace loopnfsd {

namespace {

using nfstdm::nfs3::TimeHow;
using nfstdm::xdr::Reader;
using nfstdm::xdr::Writer;

constexpr uint64_t kBlock = 512;  // unit of stx_blocks

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
    uint32_t seconds = 0;
    if (!in.get_u32(seconds) || !in.get_u32(time.nanoseconds)) return false;
    time.seconds = seconds;
    return time.nanoseconds < kNanosecondsEnd;
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

}  // namespace loopnfsd
