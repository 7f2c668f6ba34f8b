// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/end_process.h"

#include <cstdlib>

#include "tslwnfs/output/output.h"
#include "tslwnfs/terminal/interruption.h"
#include "tslwnfs/terminal/reasons.h"

namespace {
void (*instead)() = nullptr;
}

void when_process_ends(void (*action)()) {
    instead = action;
}

void end_process() {
    terminal::UnfinishedFile::note();
    if (instead != nullptr) instead();
    terminal::tell_reason();
    flush_output();
    std::exit(EXIT_FAILURE);
}
