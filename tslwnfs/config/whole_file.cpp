// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/whole_file.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

namespace {

// Closes a stream on the way out of a failure whose errno the caller is to see.
bool fail_and_close(Stream &stream) {
    const int failure = errno;
    stream.reset();
    errno = failure;
    return false;
}

}  // namespace

bool read_whole_file(const char *path, std::string &contents) {
    Stream stream = open_stream(path, "r");
    if (!stream) return false;
    contents.clear();
    char piece[4096];
    while (const std::size_t length = std::fread(piece, 1, sizeof piece, stream.get()))
        contents.append(piece, length);
    return std::ferror(stream.get()) == 0 || fail_and_close(stream);
}

bool write_and_close(Stream &stream, std::string_view contents) {
    const bool written = std::fwrite(contents.data(), 1, contents.size(), stream.get()) == contents.size();
    if (!written || std::fflush(stream.get()) != 0 || fsync(fileno(stream.get())) != 0) return fail_and_close(stream);
    return close_stream(stream);
}

Append append_to_file(const char *path, std::string_view text) {
    Stream stream = open_stream(path, "a");
    struct stat before;
    if (!stream || fstat(fileno(stream.get()), &before) != 0) return Append::not_opened;
    // Without a buffer nothing is left to be written again after a failure.
    write_through(stream.get());
    if (std::fwrite(text.data(), 1, text.size(), stream.get()) == text.size()) {
        return close_stream(stream) ? Append::done : Append::not_written;
    }
    const int failure = errno;
    [[maybe_unused]] const int undone = ftruncate(fileno(stream.get()), before.st_size);
    stream.reset();
    errno = failure;
    return Append::not_written;
}

bool may_exist(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 || errno != ENOENT;
}

bool is_same_file(const char *one, const char *other) {
    std::error_code missing;
    return std::filesystem::equivalent(one, other, missing);
}

void take_permissions(const Stream &stream, const char *from) {
    constexpr mode_t kPermissions = 07777;
    struct stat wanted, own;
    if (stat(from, &wanted) != 0 || fstat(fileno(stream.get()), &own) != 0 || !S_ISREG(own.st_mode)) return;
    // The owner first: changing it may take permissions away. Only an administrator may give a file to somebody else;
    // for the others the file stays their own.
    const bool keeps_owner = own.st_uid == wanted.st_uid && own.st_gid == wanted.st_gid;
    if (!keeps_owner && fchown(fileno(stream.get()), wanted.st_uid, wanted.st_gid) != 0) errno = 0;
    static_cast<void>(fchmod(fileno(stream.get()), wanted.st_mode & kPermissions));
}
