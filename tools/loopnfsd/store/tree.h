// SPDX-License-Identifier: Apache-2.0
// From handles to objects of the exported folders and back. Links are never followed and ".." is never walked, so no
// handle and no name leads out of an export.
#pragma once

#include <sys/stat.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/base/status.h"
#include "tools/loopnfsd/store/exports.h"
#include "tools/loopnfsd/store/handles.h"

namespace loopnfsd {

// An object found: the directory it is in and its name there (as the *at() system calls want it), its status then.
struct Object {
    const Export *home = nullptr;
    FileKey key;
    UniqueFd directory;      // not valid: the export's root
    std::string name = ".";  // "." for the export's root itself
    struct statx status {};

    int at() const { return directory ? directory.get() : home->root.get(); }
    bool is_directory() const { return S_ISDIR(status.stx_mode); }
    bool is_regular() const { return S_ISREG(status.stx_mode); }
    bool is_link() const { return S_ISLNK(status.stx_mode); }

    // Opens the object itself, never what a link names. Opening a fifo does not wait for its other end.
    Outcome<UniqueFd> open(int flags) const;

    // Reads the status anew.
    NfsStatus look();
};

// A name that may stand in a directory: not empty, no "/", no NUL, at most 255 bytes, neither "." nor "..".
NfsStatus check_name(std::string_view name);
// The same for a name that is to be made: "." and ".." exist already.
NfsStatus check_new_name(std::string_view name);

class Tree {
  public:
    // The exports must outlive the tree.
    explicit Tree(const ExportTable &exports);

    Outcome<Object> resolve(std::span<const std::byte> handle);
    Outcome<Object> resolve(const FileKey &key);
    Outcome<Object> root(const Export &home);

    // A name in a directory, open as directory. The object is remembered under it; "." and ".." are understood.
    Outcome<Object> child(const Object &directory, int descriptor, std::string_view name);

    // Walks a path of names from an export's root.
    Outcome<Object> walk(const Export &home, std::string_view path);

    NameTable &names() { return names_; }

  private:
    Outcome<Object> follow(const Export &home, const FileKey &key);
    void remember_everything(const Export &home);
    std::vector<FileKey> remember_children(const Object &directory);

    const ExportTable &exports_;
    NameTable names_;
};

// statx(2) of all we need, without following a link.
NfsStatus status_at(int directory, const char *name, struct statx &status);
NfsStatus status_of(int descriptor, struct statx &status);

}  // namespace loopnfsd
