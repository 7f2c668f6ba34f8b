// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "platform/descriptor.h"

namespace {

constexpr mode_t kPermissions = 07777;

// Closes a stream on the way out of a failure whose errno the caller is to see.
bool fail_and_close(Stream &stream) {
    const int failure = errno;
    stream.reset();
    errno = failure;
    return false;
}

// True when a file is of a kind that is meant. Otherwise errno is set.
template <class IsMeant>
bool is_kind(const Descriptor &file, IsMeant is_meant) {
    struct stat status;
    if (fstat(file.get(), &status) != 0) return false;
    if (is_meant(status.st_mode)) return true;
    errno = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return false;
}

// True when a text has arrived on stable storage, for a device: when it took the text.
bool write_and_flush(Stream &stream, std::string_view contents) {
    return std::fwrite(contents.data(), 1, contents.size(), stream.get()) == contents.size() &&
           std::fflush(stream.get()) == 0 && (fsync(fileno(stream.get())) == 0 || errno == EINVAL);
}

// Gives a file to the owner and the group of another one. Only an administrator may give a file to somebody else, and
// others only to groups of their own. True when the group is the wanted one in the end.
bool take_group(int file, const struct stat &own, const struct stat &wanted) {
    if (own.st_uid == wanted.st_uid && own.st_gid == wanted.st_gid) return true;
    if (fchown(file, wanted.st_uid, wanted.st_gid) == 0) return true;
    return own.st_gid == wanted.st_gid || fchown(file, static_cast<uid_t>(-1), wanted.st_gid) == 0;
}

// Gives a file those permissions of another one that are allowed. False, with errno set, when it keeps others.
bool set_permissions(const Stream &stream, const char *from, mode_t allowed) {
    constexpr mode_t kOwnerOnly = 0700;
    const int file = fileno(stream.get());
    struct stat wanted, own;
    if (stat(from, &wanted) != 0 || fstat(file, &own) != 0) return false;
    if (!S_ISREG(own.st_mode)) return true;
    // The owner first: changing it may take permissions away. Until then nobody else is to read along.
    static_cast<void>(fchmod(file, own.st_mode & wanted.st_mode & kPermissions));
    if (!take_group(file, own, wanted)) allowed &= kOwnerOnly;
    return fchmod(file, wanted.st_mode & allowed) == 0 || (own.st_mode & kPermissions & ~wanted.st_mode) == 0;
}

// The file itself where a name is a link to it.
std::string behind_links(const char *path) {
    std::error_code unresolved;
    const std::filesystem::path real = std::filesystem::canonical(path, unresolved);
    return unresolved ? path : real.string();
}

std::string directory_of(const char *path) {
    const std::string_view name(path);
    return std::string(name.substr(0, name.rfind('/') + 1));
}

// What a group may read in a directory that hands its group on and lets it write, the group may also change: whoever
// made it, and whatever the maker's umask.
bool is_shared(const char *path, mode_t mode) {
    struct stat status;
    return (mode & S_IRGRP) != 0 && stat(directory_of(path).c_str(), &status) == 0 && (status.st_mode & S_ISGID) != 0 &&
           (status.st_mode & S_IWGRP) != 0;
}

Descriptor open_or_make(const char *path, int how, mode_t mode) {
    if (!may_follow(path)) how |= O_NOFOLLOW;
    if (!is_shared(path, mode)) return Descriptor(open(path, how, mode));
    constexpr mode_t kOfGroup = S_IRGRP | S_IWGRP;
    const mode_t mask = umask(0);
    umask(mask & ~kOfGroup);
    Descriptor file(open(path, how, mode | kOfGroup));
    umask(mask);  // which leaves errno alone
    return file;
}

bool is_writable_file(const std::string &path) {
    const Descriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NONBLOCK));
    return file && is_kind(file, [](mode_t mode) { return S_ISREG(mode); });
}

// What the file held had room, so it has room again when the new contents have none.
Written write_in_place(const std::string &path, std::string_view contents, const char *like) {
    std::string old;
    const bool is_there = read_whole_file(path.c_str(), old);
    Stream file = open_for_writing(path.c_str(), Writing::anew, like != nullptr ? 0600 : kOrdinaryFile);
    if (!file || (like != nullptr && !take_permissions(file, like))) return Written::not_opened;
    if (write_and_close(file, contents)) return Written::done;
    const int failure = errno;
    Stream again = is_there ? open_for_writing(path.c_str(), Writing::anew) : nullptr;
    if (again) static_cast<void>(write_and_close(again, old));
    errno = failure;
    return Written::not_written;
}

bool is_full(int error) {
    return error == ENOSPC || error == EDQUOT;
}

// Removes what was begun; errno stays that of the failure.
Written abandon(const std::string &path, Written failure) {
    const int error = errno;
    static_cast<void>(unlink(path.c_str()));
    errno = error;
    return failure;
}

}  // namespace

bool read_whole_file(const char *path, std::string &contents) {
    const Descriptor file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file || !is_kind(file, [](mode_t mode) { return S_ISREG(mode); })) return false;
    contents.clear();
    char piece[4096];
    for (;;) {
        const ssize_t length = read(file.get(), piece, sizeof piece);
        if (length == 0) return true;
        if (length > 0) contents.append(piece, static_cast<std::size_t>(length));
        if (length < 0 && errno != EINTR) return false;
    }
}

Stream open_for_writing(const char *path, Writing writing, mode_t mode) {
    const int how = writing == Writing::anew ? O_TRUNC : O_APPEND;
    Descriptor file = open_or_make(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NONBLOCK | how, mode);
    if (!file || !is_kind(file, [](mode_t kind) { return !S_ISFIFO(kind); })) return nullptr;
    Stream stream(fdopen(file.get(), writing == Writing::anew ? "w" : "a"));
    if (stream) static_cast<void>(file.release());
    return stream;
}

bool write_and_close(Stream &stream, std::string_view contents) {
    return write_and_flush(stream, contents) ? close_stream(stream) : fail_and_close(stream);
}

Written append_to_file(const char *path, std::string_view text, mode_t mode) {
    Stream stream = open_for_writing(path, Writing::at_end, mode);
    struct stat before;
    if (!stream || fstat(fileno(stream.get()), &before) != 0) return Written::not_opened;
    // Without a buffer nothing is left to be written again after a failure.
    write_through(stream.get());
    if (write_and_flush(stream, text)) return close_stream(stream) ? Written::done : Written::not_written;
    const int failure = errno;
    [[maybe_unused]] const int undone = ftruncate(fileno(stream.get()), before.st_size);
    stream.reset();
    errno = failure;
    return Written::not_written;
}

Written replace_file(const char *path, std::string_view contents, const char *like) {
    const bool is_new = !may_exist(path);
    const std::string target = may_follow(path) ? behind_links(path) : path;
    if (!is_new && !is_writable_file(target)) return write_in_place(target, contents, nullptr);
    const std::string beside = target + ".new";
    static_cast<void>(unlink(beside.c_str()));
    Stream file = open_for_writing(beside.c_str(), Writing::anew, is_new && like == nullptr ? kOrdinaryFile : 0600);
    const char *permissions = is_new ? like : target.c_str();
    if (file && (permissions == nullptr || take_permissions(file, permissions))) {
        const bool is_written = write_and_close(file, contents);
        if (is_written && std::rename(beside.c_str(), target.c_str()) == 0) return Written::done;
        if (!is_written && !is_full(errno)) return abandon(beside, Written::not_written);
    }
    abandon(beside, Written::not_opened);
    return write_in_place(target, contents, is_new ? like : nullptr);
}

bool may_follow(const char *path) {
    struct stat link, directory;
    if (lstat(path, &link) != 0 || !S_ISLNK(link.st_mode)) return false;
    if (link.st_uid == geteuid()) return true;
    return stat(directory_of(path).c_str(), &directory) == 0 && link.st_uid == directory.st_uid;
}

bool may_exist(const char *path) {
    struct stat status;
    return stat(path, &status) == 0 || errno != ENOENT;
}

bool is_same_file(const char *one, const char *other) {
    std::error_code missing;
    return std::filesystem::equivalent(one, other, missing);
}

bool take_permissions(const Stream &stream, const char *from) {
    return set_permissions(stream, from, kPermissions);
}

bool limit_permissions(const Stream &stream, const char *from) {
    struct stat own;
    return fstat(fileno(stream.get()), &own) == 0 && set_permissions(stream, from, own.st_mode & kPermissions);
}
