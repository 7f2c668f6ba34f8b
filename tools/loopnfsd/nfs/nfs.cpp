// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs/nfs.h"

#include <iterator>

#include "nfstdm/nfs3/constants.h"

namespace loopnfsd {

namespace {

using nfstdm::xdr::Reader;

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

bool NfsService::get_handle(Reader &in, Bytes &handle) {
    return in.get_opaque(handle, nfstdm::nfs3::kHandleMaximum);
}

bool NfsService::get_where(Reader &in, Where &where) {
    // filename3 has no limit on the wire; one that is too long is told so by its status.
    return get_handle(in, where.handle) && in.get_string(where.name, in.left());
}

void NfsService::put_status(Call &call, NfsStatus status) {
    call.results.put_u32(static_cast<uint32_t>(status));
}

void NfsService::put_post_op(Call &call, const Object *object) {
    struct statx now {};
    if (object == nullptr || status_at(object->at(), object->name.c_str(), now) != NfsStatus::ok)
        return put_post_op_attributes(call.results, nullptr);
    now = files_.shown(call, object->key, now);
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
    call.results.put_opaque(files_.handle_of(call, key));
}

bool NfsService::null(Call &call) {
    return call.arguments.finished();
}

}  // namespace loopnfsd
