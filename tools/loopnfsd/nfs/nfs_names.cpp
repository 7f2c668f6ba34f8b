// SPDX-License-Identifier: Apache-2.0
// LOOKUP, READLINK, REMOVE, RMDIR, RENAME, LINK.
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <string>

#include "tools/loopnfsd/nfs/nfs.h"
#include "tools/loopnfsd/nfs/permissions.h"

namespace loopnfsd {

bool NfsService::lookup(Call &call) {
    Where where;
    if (!get_where(call.arguments, where) || !call.arguments.finished()) return false;
    const auto folder = find_folder(where.handle);
    NfsStatus status = folder.status();
    if (folder.ok()) status = allow(call, *folder->object.home, folder->object.status, kWantExecute);
    Outcome<Object> found = status;
    if (status == NfsStatus::ok) found = tree_.child(folder->object, folder->descriptor.get(), where.name);
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
    const auto link = find(handle);
    NfsStatus status = link.status();
    std::array<char, PATH_MAX> path{};
    ssize_t size = 0;
    if (link.ok()) {
        if (!link->is_link())
            status = NfsStatus::inval;
        else if ((size = readlinkat(link->at(), link->name.c_str(), path.data(), path.size())) < 0)
            status = status_of_errno(errno);
    }
    put_status(call, status);
    put_post_op(call, link);
    if (status == NfsStatus::ok) call.results.put_string({path.data(), static_cast<std::size_t>(size)});
    return true;
}

// An object has lost a name. Whatever is remembered under its key must not be found again if that was the last one; if
// it was not, the next use of its handle searches for another.
void NfsService::lose(const FileKey &key, const struct statx &status) {
    tree_.names().forget(key);
    listings_.forget(key);
    if (S_ISREG(status.stx_mode) && status.stx_nlink > 1) return;
    files_.forget(key);
    held_.drop(key);
    if (S_ISREG(status.stx_mode)) capacity_.release(key, status, 0);
}

NfsStatus NfsService::unlink(const Folder &folder, std::string_view name, int flags) {
    if (const NfsStatus status = check_name(name); status != NfsStatus::ok)
        return name == ".." ? NfsStatus::exist : status;
    const std::string entry(name);
    struct statx gone {};
    if (const NfsStatus status = status_at(folder.descriptor.get(), entry.c_str(), gone); status != NfsStatus::ok)
        return status;
    if (unlinkat(folder.descriptor.get(), entry.c_str(), flags) != 0) return status_of_errno(errno);
    listings_.forget(folder.object.key);
    lose(key_of(folder.object.key.export_id, gone), gone);
    return NfsStatus::ok;
}

bool NfsService::remove(Call &call) {
    Where where;
    if (!get_where(call.arguments, where) || !call.arguments.finished()) return false;
    const auto folder = find_folder(where.handle);
    NfsStatus status = allow_change(call, folder);
    if (status == NfsStatus::ok) status = unlink(*folder, where.name, 0);
    put_status(call, status);
    put_wcc(call, folder);
    return true;
}

bool NfsService::rmdir(Call &call) {
    Where where;
    if (!get_where(call.arguments, where) || !call.arguments.finished()) return false;
    const auto folder = find_folder(where.handle);
    NfsStatus status = allow_change(call, folder);
    if (status == NfsStatus::ok) status = unlink(*folder, where.name, AT_REMOVEDIR);
    put_status(call, status);
    put_wcc(call, folder);
    return true;
}

NfsStatus NfsService::move(const Folder &from, std::string_view old_name, const Folder &to, std::string_view new_name) {
    if (from.object.home != to.object.home) return NfsStatus::xdev;
    for (const std::string_view name : {old_name, new_name})
        if (const NfsStatus status = check_name(name); status != NfsStatus::ok) return status;
    const std::string source(old_name);
    const std::string target(new_name);
    struct statx moved {};
    struct statx replaced {};
    const NfsStatus found = status_at(from.descriptor.get(), source.c_str(), moved);
    if (found != NfsStatus::ok) return found;
    const bool replaces = status_at(to.descriptor.get(), target.c_str(), replaced) == NfsStatus::ok;
    if (renameat(from.descriptor.get(), source.c_str(), to.descriptor.get(), target.c_str()) != 0)
        return status_of_errno(errno);
    listings_.forget(from.object.key);
    listings_.forget(to.object.key);
    const FileKey key = key_of(from.object.key.export_id, moved);
    const FileKey replaced_key = key_of(from.object.key.export_id, replaced);
    if (replaces && replaced_key != key) lose(replaced_key, replaced);
    tree_.names().remember(key, to.object.key, target);
    return NfsStatus::ok;
}

bool NfsService::rename(Call &call) {
    Where from;
    Where to;
    if (!get_where(call.arguments, from) || !get_where(call.arguments, to) || !call.arguments.finished()) return false;
    const auto old_folder = find_folder(from.handle);
    const auto new_folder = find_folder(to.handle);
    NfsStatus status = allow_change(call, old_folder);
    if (status == NfsStatus::ok) status = allow_change(call, new_folder);
    if (status == NfsStatus::ok) status = move(*old_folder, from.name, *new_folder, to.name);
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
    const auto object = find(handle);
    const auto folder = find_folder(where.handle);
    NfsStatus status = object.ok() ? allow_change(call, folder) : object.status();
    if (status == NfsStatus::ok) status = check_new_name(where.name);
    if (status == NfsStatus::ok && object->home != folder->object.home) status = NfsStatus::xdev;
    if (status == NfsStatus::ok && object->is_directory()) status = NfsStatus::isdir;
    if (status == NfsStatus::ok) {
        const std::string name(where.name);
        if (linkat(object->at(), object->name.c_str(), folder->descriptor.get(), name.c_str(), 0) != 0)
            status = status_of_errno(errno);
        listings_.forget(folder->object.key);
    }
    put_status(call, status);
    put_post_op(call, object);
    put_wcc(call, folder);
    return true;
}

}  // namespace loopnfsd
