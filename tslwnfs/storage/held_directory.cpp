// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/held_directory.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

std::vector<const HeldDirectory *> held_directories;

const HeldDirectory *held_at(std::string_view path) {
    const auto found = std::find_if(held_directories.rbegin(), held_directories.rend(),
                                    [path](const HeldDirectory *directory) { return directory->is_at(path); });
    return found == held_directories.rend() ? nullptr : *found;
}

// A descriptor that only leads on: what may not be listed may still be walked through.
int hold(const char *path, HeldDirectory::LastLink last) {
    const LocalPlace place = local_place(path);
    const int no_follow = last == HeldDirectory::LastLink::refused ? O_NOFOLLOW : place.no_follow();
    return openat(place.directory, place.name, O_PATH | O_DIRECTORY | O_CLOEXEC | no_follow);
}

}  // namespace

HeldDirectory::HeldDirectory(const PathBuffer &path, LastLink last)
    : path_(path.view()), descriptor_(hold(path.c_str(), last)) {
    held_directories.push_back(this);
}

HeldDirectory::HeldDirectory(std::string_view path, int descriptor) : path_(path), descriptor_(descriptor) {
    held_directories.push_back(this);
}

HeldDirectory::~HeldDirectory() {
    held_directories.pop_back();
    if (descriptor_ >= 0) close(descriptor_);
}

void forget_held_directories() {
    held_directories.clear();
}

const HeldDirectory *held_directory_of(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? nullptr : held_at(path.substr(0, slash));
}

LocalPlace local_place(const char *path) {
    const HeldDirectory *const directory = held_directory_of(path);
    if (directory != nullptr) return {directory->descriptor(), std::strrchr(path, '/') + 1, true};
    return {AT_FDCWD, path, false};
}

int open_local_directory(const char *path) {
    constexpr int kFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
    if (const HeldDirectory *const directory = held_at(path)) return openat(directory->descriptor(), ".", kFlags);
    const LocalPlace place = local_place(path);
    return openat(place.directory, place.name, kFlags | place.no_follow());
}
