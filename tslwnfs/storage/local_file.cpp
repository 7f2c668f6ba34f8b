// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/local_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tslwnfs/storage/resolve.h"

namespace {

bool is_directory(FILE *stream) {
    struct stat status;
    return fstat(fileno(stream), &status) == 0 && S_ISDIR(status.st_mode);
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
    const int descriptor = open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) return true;
    const bool synchronized = synchronize(descriptor);
    close(descriptor);
    return synchronized;
}

}  // namespace

FileStream open_local_source(const char *path, uint64_t &size) {
    FileStream stream(std::fopen(path, "rb"));
    if (stream == nullptr || is_directory(stream.get())) return nullptr;
    off_t end = -1;
    if (fseeko(stream.get(), 0, SEEK_END) == 0) end = ftello(stream.get());
    size = end < 0 ? 0 : static_cast<uint64_t>(end);
    std::rewind(stream.get());
    return stream;
}

bool is_readable(const char *path) {
    const int descriptor = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0) return false;
    close(descriptor);
    return true;
}

bool close_stream(FileStream &stream) {
    FILE *const closing = stream.release();
    return closing == nullptr || std::fclose(closing) == 0;
}

bool synchronize_stream(FILE *stream, const char *path) {
    return std::fflush(stream) == 0 && synchronize(fileno(stream)) && synchronize_parent(path);
}
