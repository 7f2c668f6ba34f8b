// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/client/question.h"

#include <cstdio>

#include "tslwnfs/output/output.h"

bool ask_once(const std::string &question) {
    lwrf("%s", question.c_str());
    flush_output();
    return std::getchar() == 'y';
}
