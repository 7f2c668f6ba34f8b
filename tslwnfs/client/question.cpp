// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/client/question.h"

#include <cstdio>

bool ask_once(const std::string &question) {
    static_cast<void>(std::fputs(question.c_str(), stdout));
    static_cast<void>(std::fflush(nullptr));
    return std::getchar() == 'y';
}
