// SPDX-License-Identifier: Apache-2.0
// Local directories that stay open while the tree below them is walked.
//
// Between the look at an object and what is then done to it, somebody may put a link in the place of a directory above
// it. So whatever lies right in a held directory is looked at, opened, made and removed by its name in the directory
// that was opened, wherever the directory's path leads by now.
#pragma once

#include <fcntl.h>

#include <string>
#include <string_view>

#include "platform/path_buffer.h"

// Holds a directory as long as it lives. Innermost last: held directories go in the reverse order of their coming.
class HeldDirectory {
  public:
    // Whether the last component may be a link. In a held directory it never may.
    enum class LastLink : uint8_t { followed, refused };

    // Opens the directory. When that fails, whatever lies in it cannot be reached as long as this lives.
    explicit HeldDirectory(const PathBuffer &path, LastLink last = LastLink::refused);
    // Holds one that another process opened, and closes the descriptor in the end.
    HeldDirectory(std::string_view path, int descriptor);
    ~HeldDirectory();
    HeldDirectory(const HeldDirectory &) = delete;
    HeldDirectory &operator=(const HeldDirectory &) = delete;

    int descriptor() const { return descriptor_; }
    const std::string &path() const { return path_; }
    bool is_at(std::string_view path) const { return path_ == path; }

  private:
    std::string path_;
    int descriptor_;
};

// For a forked process that is told anew what to hold.
void forget_held_directories();

// The held directory that a path lies right in; null when it lies in none.
const HeldDirectory *held_directory_of(std::string_view path);

// Where the system's calls that end in "at" find a local object: by its name in a held directory, else by its path.
struct LocalPlace {
    int directory;     // for the call's first argument
    const char *name;  // a part of the path it was made of: valid as long as that
    bool held;

    // A flag for open: what is put in the place of something in a held directory is not followed.
    int no_follow() const { return held ? O_NOFOLLOW : 0; }
};

LocalPlace local_place(const char *path);

// Opens a directory for listing: the held one at this path, else wherever the path leads. Returns -1 and sets errno.
int open_local_directory(const char *path);
