// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/warning.h"

#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/screen.h"

void warn(const char *function, const std::string &text) {
    tslwnfswrf(3, function, "%s\n", text.c_str());
    terminal::say("warning: " + text);
}
