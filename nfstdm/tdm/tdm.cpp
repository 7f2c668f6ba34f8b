// SPDX-License-Identifier: Apache-2.0
#include "include/tdm.h"
