// SPDX-License-Identifier: Apache-2.0
// LOOKUP, READLINK, REMOVE, RMDIR, RENAME, LINK.
#include <fcntl.h>

#include "tools/loopnfsd/nfs/nfs.h"

namespace loopnfsd {

bool NfsService::lookup(Call &call) {
    Where where;
    if (!get_where(call.arguments, where) || !call.arguments.finished()) return false;
    const auto folder = files_.find_folder(where.handle);
    Outcome<Object> found = folder.status();
    if (folder.ok()) found = files_.find_child(call, *folder, where.name);
    put_status(call, found.status());
    if (found.ok()) {
        put_handle(call, found->key);
        put_post_op(call, found);
    }
    put_post_op(call, folder.ok() ? &folder->object : nullptr);
    return true;
}

bool NfsService::readlink(Call &call) {
    Bytes handle;
    if (!get_handle(call.arguments, handle) || !call.arguments.finished()) return false;
    const auto link = files_.find(handle);
    Outcome<std::string> target = link.status();
    if (link.ok()) target = files_.target_of(*link);
    put_status(call, target.status());
    put_post_op(call, link);
    if (target.ok()) call.results.put_string(*target);
    return true;
}

bool NfsService::remove(Call &call) {
    return unlink(call, 0);
}

bool NfsService::rmdir(Call &call) {
    return unlink(call, AT_REMOVEDIR);
}

bool NfsService::unlink(Call &call, int flags) {
    Where where;
    if (!get_where(call.arguments, where) || !call.arguments.finished()) return false;
    const auto folder = files_.find_folder(where.handle);
    NfsStatus status = files_.allow_change(call, folder);
    if (status == NfsStatus::ok) status = files_.unlink(*folder, where.name, flags);
    put_status(call, status);
    put_wcc(call, folder);
    return true;
}

bool NfsService::rename(Call &call) {
    Where from;
    Where to;
    if (!get_where(call.arguments, from) || !get_where(call.arguments, to) || !call.arguments.finished()) return false;
    const auto old_folder = files_.find_folder(from.handle);
    const auto new_folder = files_.find_folder(to.handle);
    NfsStatus status = files_.allow_change(call, old_folder);
    if (status == NfsStatus::ok) status = files_.allow_change(call, new_folder);
    if (status == NfsStatus::ok) status = files_.move(*old_folder, from.name, *new_folder, to.name);
    put_status(call, status);
    put_wcc(call, old_folder);
    put_wcc(call, new_folder);
    return true;
}

bool NfsService::link(Call &call) {
    Bytes handle;
    Where where;
    if (!get_handle(call.arguments, handle) || !get_where(call.arguments, where) || !call.arguments.finished())
        return false;
    const auto object = files_.find(handle);
    const auto folder = files_.find_folder(where.handle);
    NfsStatus status = object.ok() ? files_.allow_change(call, folder) : object.status();
    if (status == NfsStatus::ok) status = check_new_name(where.name);
    if (status == NfsStatus::ok) status = files_.add_name(*object, *folder, where.name);
    put_status(call, status);
    put_post_op(call, object);
    put_wcc(call, folder);
    return true;
}

}  // namespace loopnfsd
