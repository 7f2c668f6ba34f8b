// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/unfinished_destination.h"

#include "include/tdm.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/storage/transfer.h"

UnfinishedDestination::~UnfinishedDestination() {
    if (!ended_) terminal::UnfinishedFile::note();
}

void UnfinishedDestination::at(uint64_t end) {
    terminal::UnfinishedFile::at(end);
    if (terminal::UnfinishedFile::interruption() != 0) give_up(end);
}

// A server that does not answer in time is left: the interruption then ends the program from outside.
void UnfinishedDestination::give_up(uint64_t end) const {
    if (!destination_.local && storage_barrier() == 0 && destination_.created) {
        static_cast<void>(tdm_resize(ctx, destination_.info.file, end));
    }
    terminal::UnfinishedFile::tell();
    terminal::UnfinishedFile::end_program(terminal::UnfinishedFile::interruption());
}
