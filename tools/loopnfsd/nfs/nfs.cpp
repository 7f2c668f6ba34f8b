// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs/nfs.h"

#include <fcntl.h>

#include <iterator>
#include <limits>
#include <random>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/nfs/permissions.h"

namespace loopnfsd {

namespace {

using nfstdm::xdr::Reader;

uint64_t random_verifier() {
    std::random_device device;
    return uint64_t{device()} << 32 | device();
}

}  // namespace

struct NfsService::Row {
    bool (NfsService::*procedure)(Call &call);
};

// By procedure number.
const NfsService::Row NfsService::kRows[] = {
    {&NfsService::null},     {&NfsService::getattr},     {&NfsService::setattr}, {&NfsService::lookup},
    {&NfsService::access},   {&NfsService::readlink},    {&NfsService::read},    {&NfsService::write},
    {&NfsService::create},   {&NfsService::mkdir},       {&NfsService::symlink}, {&NfsService::mknod},
    {&NfsService::remove},   {&NfsService::rmdir},       {&NfsService::rename},  {&NfsService::link},
    {&NfsService::readdir},  {&NfsService::readdirplus}, {&NfsService::fsstat},  {&NfsService::fsinfo},
    {&NfsService::pathconf}, {&NfsService::commit},
};

NfsService::NfsService(const ExportTable &exports, Tree &tree, Faults &faults, const ServiceSettings &settings)
    : exports_(exports),
      tree_(tree),
      faults_(faults),
      settings_(settings),
      buffers_(settings.max_read + sizeof(uint32_t)),  // with the padding
      write_verifier_(random_verifier()) {}

uint32_t NfsService::number() const {
    return nfstdm::nfs3::kProgram;
}

uint32_t NfsService::version() const {
    return nfstdm::nfs3::kVersion;
}

bool NfsService::run(uint32_t procedure, Call &call) {
    static_assert(std::size(kRows) == static_cast<std::size_t>(nfstdm::nfs3::Procedure::commit) + 1);
    return (this->*kRows[procedure].procedure)(call);
}

void NfsService::forget_unstable() {
    held_.drop_all();
    write_verifier_ = random_verifier();
}

void NfsService::store_unstable() {
    for (const FileKey &key : held_.files()) {
        const auto file = files_.get(tree_, key, true);
        if (file.ok()) commit_held(*file, key);
    }
}

bool NfsService::get_handle(Reader &in, Bytes &handle) {
    return in.get_opaque(handle, nfstdm::nfs3::kHandleMaximum);
}

bool NfsService::get_where(Reader &in, Where &where) {
    // filename3 has no limit on the wire; one that is too long is told so by its status.
    return get_handle(in, where.handle) && in.get_string(where.name, in.left());
}

Outcome<Object> NfsService::find(Bytes handle) {
    auto object = tree_.resolve(handle);
    if (object.ok()) held_.adjust(object->key, object->status);
    return object;
}

Outcome<NfsService::Folder> NfsService::find_folder(Bytes handle) {
    auto object = tree_.resolve(handle);
    if (!object.ok()) return object.status();
    if (!object->is_directory()) return NfsStatus::notdir;
    auto descriptor = object->open(O_PATH | O_DIRECTORY);
    if (!descriptor.ok()) return descriptor.status();
    return Folder{std::move(*object), std::move(*descriptor)};
}

bool NfsService::read_only(const Call &call, const Export &home) {
    return home.read_only || faults_.hit(FaultKind::read_only, call.arrival.path);
}

NfsStatus NfsService::allow(const Call &call, const Export &home, const struct statx &status, unsigned want) {
    if ((want & (kWantWrite | kWantOwner)) != 0 && read_only(call, home)) return NfsStatus::rofs;
    if (!settings_.check_ids || has_permission(call.who, status, want)) return NfsStatus::ok;
    return (want & kWantOwner) != 0 ? NfsStatus::perm : NfsStatus::acces;
}

NfsStatus NfsService::allow_change(const Call &call, const Outcome<Folder> &folder) {
    if (!folder.ok()) return folder.status();
    return allow(call, *folder->object.home, folder->object.status, kWantWrite | kWantExecute);
}

struct statx NfsService::shown(const Call &call, const FileKey &key, struct statx status) const {
    held_.adjust(key, status);
    const auto lie = faults_.number(FaultKind::big_size, call.arrival.path);
    if (lie && S_ISREG(status.stx_mode)) status.stx_size = *lie;
    return status;
}

void NfsService::put_status(Call &call, NfsStatus status) {
    call.results.put_u32(static_cast<uint32_t>(status));
}

void NfsService::put_post_op(Call &call, const Object *object) {
    struct statx now {};
    if (object == nullptr || status_at(object->at(), object->name.c_str(), now) != NfsStatus::ok)
        return put_post_op_attributes(call.results, nullptr);
    now = shown(call, object->key, now);
    put_post_op_attributes(call.results, &now);
}

void NfsService::put_post_op(Call &call, const Outcome<Object> &object) {
    put_post_op(call, object.ok() ? &*object : nullptr);
}

void NfsService::put_wcc(Call &call, const Object *object) {
    put_pre_op_attributes(call.results, object == nullptr ? nullptr : &object->status);
    put_post_op(call, object);
}

void NfsService::put_wcc(Call &call, const Outcome<Folder> &folder) {
    put_wcc(call, folder.ok() ? &folder->object : nullptr);
}

void NfsService::put_handle(Call &call, const FileKey &key) {
    const auto size = faults_.number(FaultKind::handle_size, call.arrival.path);
    call.results.put_opaque(encode_handle(key, size.value_or(kHandleSize)));
}

bool NfsService::null(Call &call) {
    return call.arguments.finished();
}

}  // namespace loopnfsd
