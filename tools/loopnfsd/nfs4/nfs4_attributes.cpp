// SPDX-License-Identifier: Apache-2.0
// ACCESS, GETATTR, SETATTR, VERIFY, NVERIFY.
#include "tools/loopnfsd/nfs4/nfs4.h"

namespace loopnfsd::nfs4 {

namespace {

// ACCESS bits, RFC 8881 section 18.1.
constexpr uint32_t kAccessMaximum = 0x3F;
constexpr uint32_t kAccessReadAndLookup = 0x03;

}  // namespace

Status Nfs4Service::access(Compound &compound) {
    uint32_t asked = 0;
    if (!compound.in.get_u32(asked)) return Status::badxdr;
    auto found = place(compound, compound.current);
    if (!found.ok()) return found.status;
    asked &= kAccessMaximum;
    const uint32_t granted =
        found->object ? files_.granted(compound.call, *found->object, asked) : asked & kAccessReadAndLookup;
    compound.out.put_u32(asked);  // what could be told
    compound.out.put_u32(granted);
    return Status::ok;
}

Status Nfs4Service::getattr(Compound &compound) {
    Bitmap wanted;
    if (!wanted.get(compound.in)) return Status::badxdr;
    auto object = describe(compound, wanted);
    if (object.ok()) put_attributes(compound.out, wanted, *object);
    return object.status;
}

Status Nfs4Service::set(Compound &compound, Bitmap &given) {
    StateId state;
    ChangedAttributes changed;
    if (!get_state_id(compound.in, state)) return Status::badxdr;
    if (const Status status = get_changes(compound.in, changed, given); status != Status::ok) return status;
    auto object = current_object(compound);
    if (!object.ok()) return object.status;
    if (changed.size && object->is_directory()) return Status::isdir;
    if (changed.size) {
        const Status status = check_state(compound, state, kShareWrite);
        if (status != Status::ok) return status;
    }
    const NfsStatus allowed = files_.allow_setattr(compound.call, *object, changed);
    return from(allowed == NfsStatus::ok ? files_.set_attributes(*object, changed) : allowed);
}

// Tells what was set even when it failed: nothing, then.
Status Nfs4Service::setattr(Compound &compound) {
    Bitmap given;
    const Status status = set(compound, given);
    (status == Status::ok ? given : Bitmap{}).put(compound.out);
    return status;
}

Status Nfs4Service::verify(Compound &compound) {
    auto object = describe(compound, Bitmap{});
    return object.ok() ? compare(compound.in, *object) : object.status;
}

Status Nfs4Service::nverify(Compound &compound) {
    const Status status = verify(compound);
    if (status == Status::ok) return Status::same;
    return status == Status::not_same ? Status::ok : status;
}

}  // namespace loopnfsd::nfs4
