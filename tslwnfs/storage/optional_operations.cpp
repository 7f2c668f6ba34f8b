// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/optional_operations.h"

#include <cerrno>

#include "include/tdm.h"
#include "tslwnfs/options/options.h"

#pragma weak tdm_copy
#pragma weak tdm_extent

uint32_t copy_by_server(const ServerCopyRange &range, uint64_t &copied) {
    if (&tdm_copy == nullptr) return ENOTSUP;
    return tdm_copy(ctx, range.source, range.source_offset, range.destination, range.destination_offset, range.count,
                    &copied);
}

uint32_t next_extent(uint64_t file, uint64_t offset, uint64_t &begin, uint64_t &end) {
    if (&tdm_extent == nullptr) return ENOTSUP;
    return tdm_extent(ctx, file, offset, &begin, &end);
}
