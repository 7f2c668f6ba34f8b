// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/options.h"
