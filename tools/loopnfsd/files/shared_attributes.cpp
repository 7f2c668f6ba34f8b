// SPDX-License-Identifier: Apache-2.0
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "tools/loopnfsd/files/shared_files.h"

namespace loopnfsd {

namespace {

// ACCESS bits, RFC 1813 section 3.3.4.
constexpr uint32_t kAccessRead = 0x01;
constexpr uint32_t kAccessLookup = 0x02;
constexpr uint32_t kAccessModify = 0x04;
constexpr uint32_t kAccessExtend = 0x08;
constexpr uint32_t kAccessDelete = 0x10;
constexpr uint32_t kAccessExecute = 0x20;
constexpr uint32_t kAccessChange = kAccessModify | kAccessExtend | kAccessDelete;

constexpr uint32_t kExecuteBits = 0111;

}  // namespace

NfsStatus SharedFiles::allow_setattr(const Call &call, const Object &object, const ChangedAttributes &changed) {
    using nfstdm::nfs3::TimeHow;
    const bool exact = changed.access.how == TimeHow::client_time || changed.modification.how == TimeHow::client_time;
    const bool gives_away = changed.uid && *changed.uid != object.status.stx_uid;
    if (settings_.check_ids && gives_away && call.who.uid != 0) return NfsStatus::perm;
    const unsigned want = changed.mode || changed.uid || changed.gid || exact ? kWantOwner : kWantWrite;
    return allow(call, *object.home, object.status, changed.size ? want | kWantWrite : want);
}

NfsStatus SharedFiles::set_size(const FileKey &key, uint64_t size) {
    if (size > std::numeric_limits<off_t>::max()) return NfsStatus::fbig;
    const auto file = files_.get(tree_, key, true);
    if (!file.ok()) return file.status();
    if (ftruncate(file->descriptor, static_cast<off_t>(size)) != 0) return status_of_errno(errno);
    held_.drop(key, size, std::numeric_limits<uint64_t>::max());
    capacity_.release(key, file->status, size);
    return NfsStatus::ok;
}

NfsStatus SharedFiles::set_attributes(const Object &object, const ChangedAttributes &changed) {
    if (changed.size) {
        const NfsStatus status = set_size(object.key, *changed.size);
        if (status != NfsStatus::ok) return status;
    }
    return apply_changes(object, changed);
}

// Without identities to check, everything goes that makes sense for the object.
uint32_t SharedFiles::granted(const Call &call, const Object &object, uint32_t asked) {
    const auto may = [&](unsigned want) {
        return !settings_.check_ids || has_permission(call.who, object.status, want);
    };
    uint32_t bits = 0;
    if (may(kWantRead)) bits |= kAccessRead;
    if (may(kWantWrite) && !read_only(call, *object.home)) bits |= kAccessChange;
    if (object.is_directory()) {
        if (may(kWantExecute)) bits |= kAccessLookup;
    } else {
        bits &= ~kAccessDelete;
        if ((object.status.stx_mode & kExecuteBits) != 0 && may(kWantExecute)) bits |= kAccessExecute;
    }
    return bits & asked;
}

Outcome<SharedFiles::Space> SharedFiles::space(const Call &call, const Object &object) {
    struct statvfs has {};
    if (fstatvfs(object.home->root.get(), &has) != 0) return status_of_errno(errno);
    Space space{has.f_blocks * has.f_frsize,
                has.f_bfree * has.f_frsize,
                has.f_bavail * has.f_frsize,
                has.f_files,
                has.f_ffree,
                has.f_favail};
    if (const auto capacity = faults_.number(FaultKind::capacity, call.arrival.path)) {
        space.total = *capacity;
        space.free = space.available = *capacity - std::min(*capacity, capacity_.used());
    }
    return space;
}

}  // namespace loopnfsd
