// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/output/product_context.h"

TdmProductContext octx;
uint32_t tslwnfs_trace;

void reset_product_context() {
    octx = {};
    tslwnfs_trace = 0;
}
