// SPDX-License-Identifier: Apache-2.0
// GETATTR, SETATTR, ACCESS, FSSTAT, FSINFO, PATHCONF.
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <limits>

#include "tools/loopnfsd/nfs/nfs.h"
#include "tools/loopnfsd/nfs/permissions.h"

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

// FSINFO properties: hard links, symbolic links, PATHCONF is the same everywhere, times can be set.
constexpr uint32_t kProperties = 0x01 | 0x02 | 0x08 | 0x10;
constexpr uint32_t kReaddirPreferred = 64 * 1024;
constexpr uint32_t kLinksMaximum = 32000;
constexpr uint32_t kExecuteBits = 0111;

struct Guard {  // sattrguard3
    bool check = false;
    uint32_t seconds = 0;
    uint32_t nanoseconds = 0;

    bool holds(const struct statx &status) const {
        return !check ||
               (static_cast<uint32_t>(status.stx_ctime.tv_sec) == seconds && status.stx_ctime.tv_nsec == nanoseconds);
    }
};

bool get_guard(nfstdm::xdr::Reader &in, Guard &guard) {
    if (!in.get_bool(guard.check)) return false;
    return !guard.check || (in.get_u32(guard.seconds) && in.get_u32(guard.nanoseconds));
}

}  // namespace

bool NfsService::getattr(Call &call) {
    Bytes handle;
    if (!get_handle(call.arguments, handle) || !call.arguments.finished()) return false;
    const auto object = find(handle);
    put_status(call, object.status());
    if (object.ok()) put_attributes(call.results, shown(call, object->key, object->status));
    return true;
}

NfsStatus NfsService::allow_setattr(const Call &call, const Object &object, const ChangedAttributes &changed) {
    using nfstdm::nfs3::TimeHow;
    const bool exact = changed.access.how == TimeHow::client_time || changed.modification.how == TimeHow::client_time;
    const bool gives_away = changed.uid && *changed.uid != object.status.stx_uid;
    if (settings_.check_ids && gives_away && call.who.uid != 0) return NfsStatus::perm;
    const unsigned want = changed.mode || changed.uid || changed.gid || exact ? kWantOwner : kWantWrite;
    return allow(call, *object.home, object.status, changed.size ? want | kWantWrite : want);
}

NfsStatus NfsService::set_size(const FileKey &key, uint64_t size) {
    if (size > std::numeric_limits<off_t>::max()) return NfsStatus::fbig;
    const auto file = files_.get(tree_, key, true);
    if (!file.ok()) return file.status();
    if (ftruncate(file->descriptor, static_cast<off_t>(size)) != 0) return status_of_errno(errno);
    held_.drop(key, size, std::numeric_limits<uint64_t>::max());
    capacity_.release(key, file->status, size);
    return NfsStatus::ok;
}

NfsStatus NfsService::set_attributes(const Object &object, const ChangedAttributes &changed) {
    if (changed.size) {
        const NfsStatus status = set_size(object.key, *changed.size);
        if (status != NfsStatus::ok) return status;
    }
    return apply_changes(object, changed);
}

bool NfsService::setattr(Call &call) {
    Bytes handle;
    ChangedAttributes changed;
    Guard guard;
    nfstdm::xdr::Reader &in = call.arguments;
    if (!get_handle(in, handle) || !get_changed_attributes(in, changed) || !get_guard(in, guard) || !in.finished())
        return false;
    const auto object = find(handle);
    NfsStatus status = object.status();
    if (status == NfsStatus::ok) status = allow_setattr(call, *object, changed);
    if (status == NfsStatus::ok && !guard.holds(object->status)) status = NfsStatus::not_sync;
    if (status == NfsStatus::ok) status = set_attributes(*object, changed);
    put_status(call, status);
    put_wcc(call, object.ok() ? &*object : nullptr);
    return true;
}

// Without identities to check, everything goes that makes sense for the object.
uint32_t NfsService::granted(const Call &call, const Object &object, uint32_t asked) {
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

bool NfsService::access(Call &call) {
    Bytes handle;
    uint32_t asked = 0;
    if (!get_handle(call.arguments, handle) || !call.arguments.get_u32(asked) || !call.arguments.finished())
        return false;
    const auto object = find(handle);
    put_status(call, object.status());
    put_post_op(call, object);
    if (object.ok()) call.results.put_u32(granted(call, *object, asked));
    return true;
}

bool NfsService::fsstat(Call &call) {
    Bytes handle;
    if (!get_handle(call.arguments, handle) || !call.arguments.finished()) return false;
    const auto object = find(handle);
    struct statvfs space {};
    NfsStatus status = object.status();
    if (object.ok() && fstatvfs(object->home->root.get(), &space) != 0) status = status_of_errno(errno);
    put_status(call, status);
    put_post_op(call, object);
    if (status != NfsStatus::ok) return true;
    uint64_t total = space.f_blocks * space.f_frsize;
    uint64_t free = space.f_bfree * space.f_frsize;
    uint64_t available = space.f_bavail * space.f_frsize;
    if (const auto capacity = faults_.number(FaultKind::capacity, call.arrival.path)) {
        total = *capacity;
        free = available = total - std::min(total, capacity_.used());
    }
    for (const uint64_t number :
         {total, free, available, uint64_t{space.f_files}, uint64_t{space.f_ffree}, uint64_t{space.f_favail}})
        call.results.put_u64(number);
    call.results.put_u32(0);  // seconds it stays so: nobody knows
    return true;
}

bool NfsService::fsinfo(Call &call) {
    Bytes handle;
    if (!get_handle(call.arguments, handle) || !call.arguments.finished()) return false;
    const auto object = find(handle);
    put_status(call, object.status());
    put_post_op(call, object);
    if (!object.ok()) return true;
    for (const uint32_t size : {settings_.max_read, settings_.max_write}) {
        call.results.put_u32(size);  // maximum
        call.results.put_u32(size);  // preferred
        call.results.put_u32(1);     // multiple
    }
    call.results.put_u32(kReaddirPreferred);
    call.results.put_u64(std::numeric_limits<off_t>::max());
    call.results.put_u32(0);  // times are kept to the nanosecond
    call.results.put_u32(1);
    call.results.put_u32(kProperties);
    return true;
}

bool NfsService::pathconf(Call &call) {
    Bytes handle;
    if (!get_handle(call.arguments, handle) || !call.arguments.finished()) return false;
    const auto object = find(handle);
    put_status(call, object.status());
    put_post_op(call, object);
    if (!object.ok()) return true;
    call.results.put_u32(kLinksMaximum);
    call.results.put_u32(NAME_MAX);
    call.results.put_bool(true);   // longer names are refused, not cut
    call.results.put_bool(true);   // only root gives files away
    call.results.put_bool(false);  // case is significant
    call.results.put_bool(true);   // and kept
    return true;
}

}  // namespace loopnfsd
