// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/files/file_type.h"

#include <sys/stat.h>

namespace loopnfsd {

uint32_t type_of(uint32_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return 2;
        case S_IFBLK:
            return 3;
        case S_IFCHR:
            return 4;
        case S_IFLNK:
            return 5;
        case S_IFSOCK:
            return 6;
        case S_IFIFO:
            return 7;
        default:
            return 1;
    }
}

}  // namespace loopnfsd
