// SPDX-License-Identifier: Apache-2.0
#include "platform/caller.h"

int UserInTSLDBA() {
    return 1;
}
