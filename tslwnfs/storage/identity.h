// SPDX-License-Identifier: Apache-2.0
// What tells one file or directory from every other, wherever it lies and whatever path leads there, and one state of a
// file from the next.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <optional>
#include <string>

struct FileTime {
    uint64_t seconds = 0;
    uint64_t nanoseconds = 0;
    bool operator==(const FileTime &) const = default;
};

// Of a remote object any of the first four may be 0: not known.
struct FileIdentity {
    uint64_t server = 0;       // of a remote object: the block of tslnfstab that leads there
    uint64_t handle = 0;       // of a remote object: what stands for its handle
    uint64_t file_system = 0;  // the server's number, or the device
    uint64_t number = 0;       // within the file system
    bool local = false;
    bool link = false;  // a symbolic link itself
    bool directory = false;
    uint64_t size = 0;  // bytes
    FileTime modified;
    FileTime changed;  // content or attributes

    // True when nothing was written to it or changed about it, either.
    bool operator==(const FileIdentity &) const = default;

    // What the same path led to before was this very object, in whatever state.
    bool is_still(const FileIdentity &before) const;
};

enum class LastLink : uint8_t { follow, keep };

FileIdentity identity_of(const struct stat &status);

// What a path leads to now, as far as the storage library's cache is younger. Nothing when it leads nowhere or cannot
// be examined. Traces nothing.
std::optional<FileIdentity> look_at(const std::string &path, LastLink last);

// Whether two paths lead to one object: by two mounts, by two blocks of tslnfstab for one server, or by a mount and a
// local path on the server's own host. Where only numbers and state can tell, equal ones count as one object.
bool is_one_object(const std::string &one, const std::string &other);

// Whether what a path leads to, or is about to, lies in a directory or is that directory itself. Every directory above
// it is compared as it really is, behind links and mounts.
bool lies_inside(const std::string &path, const std::string &directory);
