// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/local_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "platform/descriptor.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/storage/resolve.h"

namespace {

bool is_directory(FILE *stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 && S_ISDIR(status.st_mode);
}

bool is_regular(int descriptor) {
    struct stat status;
    return fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

// Never waits for the other end of a pipe that somebody put into a tree.
Stream open_stream(const LocalPlace &place, int flags, const char *mode) {
    constexpr mode_t kPermissions = 0666;  // less the umask's
    const int waits = place.held ? O_NONBLOCK : 0;
    Descriptor descriptor(openat(place.directory, place.name, flags | waits | O_CLOEXEC, kPermissions));
    if (!descriptor) return nullptr;
    errno = EINVAL;
    if (place.held && !is_regular(descriptor.get())) return nullptr;
    Stream stream(fdopen(descriptor.get(), mode));
    if (stream) static_cast<void>(descriptor.release());
    return stream;
}

bool synchronize(int descriptor) {
    return fsync(descriptor) == 0 || errno == EINVAL || errno == ENOSYS || errno == EROFS;
}

// Best effort: a directory that cannot be opened for reading can still hold the file.
bool synchronize_parent(const char *path) {
    const std::string text = path;
    const std::size_t separator = last_separator(text);
    if (separator == std::string_view::npos) return true;
    const std::string parent = separator == 0 ? "/" : text.substr(0, separator);
    const Descriptor directory(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return !directory || synchronize(directory.get());
}

}  // namespace

Stream open_local_source(const char *path, uint64_t &size) {
    Stream stream = open_stream(local_place(path), O_RDONLY, "rb");
    if (stream == nullptr || is_directory(stream.get())) return nullptr;
    off_t end = -1;
    if (fseeko(stream.get(), 0, SEEK_END) == 0) end = ftello(stream.get());
    size = end < 0 ? 0 : static_cast<uint64_t>(end);
    std::rewind(stream.get());
    return stream;
}

Stream create_local_file(const char *path) {
    const LocalPlace place = local_place(path);
    return open_stream(place, O_WRONLY | O_CREAT | O_TRUNC | place.no_follow(), "wb");
}

bool is_readable(const char *path) {
    const LocalPlace place = local_place(path);
    const int flags = O_RDONLY | O_NONBLOCK | O_CLOEXEC | place.no_follow();
    return static_cast<bool>(Descriptor(openat(place.directory, place.name, flags)));
}

bool synchronize_stream(FILE *stream, const char *path) {
    return std::fflush(stream) == 0 && synchronize(fileno(stream)) && synchronize_parent(path);
}
