// SPDX-License-Identifier: Apache-2.0
#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>

#include "tools/loopnfsd/files/shared_files.h"

namespace loopnfsd {

// An object has lost a name. Whatever is remembered under its key must not be found again if that was the last one; if
// it was not, the next use of its handle searches for another.
void SharedFiles::lose(const FileKey &key, const struct statx &status) {
    tree_.names().forget(key);
    listings_.forget(key);
    if (S_ISREG(status.stx_mode) && status.stx_nlink > 1) return;
    files_.forget(key);
    held_.drop(key);
    if (S_ISREG(status.stx_mode)) capacity_.release(key, status, 0);
}

NfsStatus SharedFiles::unlink(const Folder &folder, std::string_view name, int flags) {
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

NfsStatus SharedFiles::move(const Folder &from, std::string_view old_name, const Folder &to,
                            std::string_view new_name) {
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

NfsStatus SharedFiles::add_name(const Object &object, const Folder &folder, std::string_view name) {
    if (object.home != folder.object.home) return NfsStatus::xdev;
    if (object.is_directory()) return NfsStatus::isdir;
    const std::string entry(name);
    if (linkat(object.at(), object.name.c_str(), folder.descriptor.get(), entry.c_str(), 0) != 0)
        return status_of_errno(errno);
    listings_.forget(folder.object.key);
    return NfsStatus::ok;
}

Outcome<std::string> SharedFiles::target_of(const Object &link) {
    if (!link.is_link()) return NfsStatus::inval;
    std::array<char, PATH_MAX> path{};
    const ssize_t size = readlinkat(link.at(), link.name.c_str(), path.data(), path.size());
    if (size < 0) return status_of_errno(errno);
    return std::string(path.data(), static_cast<std::size_t>(size));
}

}  // namespace loopnfsd
