// SPDX-License-Identifier: Apache-2.0
// A path resolution that knows no home, no storage session and no links.
#include "tslwnfs/storage/resolve.h"

#include "platform/paths.h"

void sslnrmc(uint32_t *status, const char *path, PathBuffer &resolved) {
    *status = platform_normalize_path(path, resolved) ? 0 : 1;
}
