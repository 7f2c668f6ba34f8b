// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/tree.h"

#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <unordered_set>
#include <utility>

#include "tools/loopnfsd/base/text.h"
#include "tools/loopnfsd/store/scan.h"

namespace loopnfsd {

namespace {

constexpr unsigned kWanted = STATX_BASIC_STATS | STATX_BTIME;
constexpr int kDirectoryPath = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

NfsStatus failure() {
    return status_of_errno(errno);
}

}  // namespace

NfsStatus status_at(int directory, const char *name, struct statx &status) {
    return statx(directory, name, AT_SYMLINK_NOFOLLOW, kWanted, &status) == 0 ? NfsStatus::ok : failure();
}

NfsStatus status_of(int descriptor, struct statx &status) {
    return statx(descriptor, "", AT_EMPTY_PATH, kWanted, &status) == 0 ? NfsStatus::ok : failure();
}

Outcome<UniqueFd> Object::open(int flags) const {
    UniqueFd opened(openat(at(), name.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!opened) return failure();
    return opened;
}

NfsStatus Object::look() {
    return status_at(at(), name.c_str(), status);
}

NfsStatus check_name(std::string_view name) {
    if (name.size() > NAME_MAX) return NfsStatus::nametoolong;
    const bool unusable = name.empty() || name == "." || name == ".." || name.find('/') != std::string_view::npos ||
                          name.find('\0') != std::string_view::npos;
    return unusable ? NfsStatus::inval : NfsStatus::ok;
}

NfsStatus check_new_name(std::string_view name) {
    return name == "." || name == ".." ? NfsStatus::exist : check_name(name);
}

Tree::Tree(const ExportTable &exports) : exports_(exports) {
    for (const Export &home : exports.all()) {
        struct statx status {};
        if (status_of(home.root.get(), status) == NfsStatus::ok) names_.remember_root(key_of(home.id, status));
    }
}

Outcome<Object> Tree::resolve(std::span<const std::byte> handle) {
    const auto key = decode_handle(handle);
    if (!key) return NfsStatus::badhandle;
    return resolve(*key);
}

Outcome<Object> Tree::resolve(const FileKey &key) {
    const Export *home = exports_.by_id(key.export_id);
    if (home == nullptr) return NfsStatus::stale;
    auto found = follow(*home, key);
    if (found.ok()) return found;
    // Made known before this server started, moved behind its back, or gone: only the tree itself can tell.
    remember_everything(*home);
    found = follow(*home, key);
    if (!found.ok()) names_.forget(key);
    return found;
}

Outcome<Object> Tree::follow(const Export &home, const FileKey &key) {
    const auto path = names_.path_of(key);
    if (!path) return NfsStatus::stale;
    Object object{&home, key, {}, ".", {}};
    for (std::size_t i = 0; i < path->size(); ++i) {
        if (i > 0) object.directory = UniqueFd(openat(object.at(), object.name.c_str(), kDirectoryPath));
        if (i > 0 && !object.directory) return NfsStatus::stale;
        object.name = (*path)[i];
    }
    if (object.look() != NfsStatus::ok || key_of(home.id, object.status) != key) return NfsStatus::stale;
    return object;
}

Outcome<Object> Tree::root(const Export &home) {
    Object object{&home, {}, {}, ".", {}};
    const NfsStatus status = object.look();
    if (status != NfsStatus::ok) return status;
    object.key = key_of(home.id, object.status);
    names_.remember_root(object.key);
    return object;
}

Outcome<Object> Tree::child(const Object &directory, int descriptor, std::string_view name) {
    if (name == ".") return resolve(directory.key);
    if (name == "..") return resolve(names_.parent_of(directory.key).value_or(directory.key));
    if (const NfsStatus status = check_name(name); status != NfsStatus::ok) return status;
    Object object{directory.home, {}, UniqueFd(fcntl(descriptor, F_DUPFD_CLOEXEC, 0)), std::string(name), {}};
    if (!object.directory) return failure();
    const NfsStatus status = object.look();
    if (status != NfsStatus::ok) return status;
    object.key = key_of(object.home->id, object.status);
    names_.remember(object.key, directory.key, name);
    return object;
}

Outcome<Object> Tree::walk(const Export &home, std::string_view path) {
    auto here = root(home);
    for (const std::string_view name : split(path, '/')) {
        if (!here.ok()) return here;
        if (name.empty()) continue;
        auto directory = here->open(O_PATH | O_DIRECTORY);
        if (!directory.ok()) return NfsStatus::notdir;
        here = child(*here, directory->get(), name);
    }
    return here;
}

// Breadth first over the whole export, so that after a restart one walk makes every handle known again.
void Tree::remember_everything(const Export &home) {
    const auto top = root(home);
    if (!top.ok()) return;
    std::vector<FileKey> directories{top->key};
    std::unordered_set<FileKey, FileKeyHash> seen{top->key};  // a bind mount may put a directory into itself
    for (std::size_t i = 0; i < directories.size(); ++i) {
        const FileKey key = directories[i];
        const auto directory = follow(home, key);
        if (!directory.ok()) continue;
        for (const FileKey &child : remember_children(*directory))
            if (seen.insert(child).second) directories.push_back(child);
    }
}

// Gives the directories among the children.
std::vector<FileKey> Tree::remember_children(const Object &directory) {
    std::vector<FileKey> directories;
    auto opened = directory.open(O_RDONLY | O_DIRECTORY);
    if (!opened.ok()) return directories;
    const int descriptor = opened->get();
    scan_directory(std::move(*opened), [&](const dirent &entry) {
        struct statx status {};
        if (status_at(descriptor, entry.d_name, status) != NfsStatus::ok) return;
        const FileKey key = key_of(directory.home->id, status);
        names_.remember(key, directory.key, entry.d_name);
        if (S_ISDIR(status.stx_mode)) directories.push_back(key);
    });
    return directories;
}

}  // namespace loopnfsd
