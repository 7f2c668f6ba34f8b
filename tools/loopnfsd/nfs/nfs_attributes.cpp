// SPDX-License-Identifier: Apache-2.0
// GETATTR, SETATTR, ACCESS, FSSTAT, FSINFO, PATHCONF.
#include <unistd.h>

#include <climits>
#include <limits>

#include "tools/loopnfsd/nfs/nfs.h"

namespace loopnfsd {

namespace {

// FSINFO properties: hard links, symbolic links, PATHCONF is the same everywhere, times can be set.
constexpr uint32_t kProperties = 0x01 | 0x02 | 0x08 | 0x10;
constexpr uint32_t kReaddirPreferred = 64 * 1024;
constexpr uint32_t kLinksMaximum = 32000;

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
    const auto object = files_.find(handle);
    put_status(call, object.status());
    if (object.ok()) put_attributes(call.results, files_.shown(call, object->key, object->status));
    return true;
}

bool NfsService::setattr(Call &call) {
    Bytes handle;
    ChangedAttributes changed;
    Guard guard;
    nfstdm::xdr::Reader &in = call.arguments;
    if (!get_handle(in, handle) || !get_changed_attributes(in, changed) || !get_guard(in, guard) || !in.finished())
        return false;
    const auto object = files_.find(handle);
    NfsStatus status = object.status();
    if (status == NfsStatus::ok) status = files_.allow_setattr(call, *object, changed);
    if (status == NfsStatus::ok && !guard.holds(object->status)) status = NfsStatus::not_sync;
    if (status == NfsStatus::ok) status = files_.set_attributes(*object, changed);
    put_status(call, status);
    put_wcc(call, object.ok() ? &*object : nullptr);
    return true;
}

bool NfsService::access(Call &call) {
    Bytes handle;
    uint32_t asked = 0;
    if (!get_handle(call.arguments, handle) || !call.arguments.get_u32(asked) || !call.arguments.finished())
        return false;
    const auto object = files_.find(handle);
    put_status(call, object.status());
    put_post_op(call, object);
    if (object.ok()) call.results.put_u32(files_.granted(call, *object, asked));
    return true;
}

bool NfsService::fsstat(Call &call) {
    Bytes handle;
    if (!get_handle(call.arguments, handle) || !call.arguments.finished()) return false;
    const auto object = files_.find(handle);
    Outcome<SharedFiles::Space> space = object.status();
    if (object.ok()) space = files_.space(call, *object);
    put_status(call, space.status());
    put_post_op(call, object);
    if (!space.ok()) return true;
    for (const uint64_t number :
         {space->total, space->free, space->available, space->files, space->files_free, space->files_available})
        call.results.put_u64(number);
    call.results.put_u32(0);  // seconds it stays so: nobody knows
    return true;
}

bool NfsService::fsinfo(Call &call) {
    Bytes handle;
    if (!get_handle(call.arguments, handle) || !call.arguments.finished()) return false;
    const auto object = files_.find(handle);
    put_status(call, object.status());
    put_post_op(call, object);
    if (!object.ok()) return true;
    for (const uint32_t size : {files_.settings().max_read, files_.settings().max_write}) {
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
    const auto object = files_.find(handle);
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
