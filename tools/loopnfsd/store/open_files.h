// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <sys/stat.h>

#include <list>

#include "tools/loopnfsd/base/status.h"
#include "tools/loopnfsd/store/handles.h"
#include "tools/loopnfsd/store/tree.h"

namespace loopnfsd {

// A regular file, open. The descriptor is valid until the next call of OpenFiles.
struct OpenFile {
    int descriptor = -1;
    struct statx status {};
};

// Keeps the files that were used last open, so that a READ or WRITE need not walk the tree; and so that a file made
// without write permission can be written by who made it, as every NFS server lets its owner do.
class OpenFiles {
  public:
    // ISDIR for a directory, INVAL for anything else that is no regular file, STALE when it was deleted.
    Outcome<OpenFile> get(Tree &tree, const FileKey &key, bool to_write);

    // Takes ownership of a descriptor that is open for reading and writing.
    void keep(const FileKey &key, UniqueFd descriptor);
    void forget(const FileKey &key);

  private:
    struct Kept {
        FileKey key;
        UniqueFd descriptor;
        bool readable = true;
        bool writable = false;
    };
    std::list<Kept>::iterator find(const FileKey &key, bool to_write);
    void keep(Kept file);

    std::list<Kept> files_;  // the one used last in front
};

}  // namespace loopnfsd
