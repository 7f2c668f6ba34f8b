// SPDX-License-Identifier: Apache-2.0
// A destination while it is being written: what an interruption leaves of it.
#pragma once

#include <cstdint>

#include "tslwnfs/commands/destination_file.h"
#include "tslwnfs/terminal/interruption.h"

class UnfinishedDestination {
  public:
    // The destination is open. size: bytes that it is to have; 0 when nobody knows.
    UnfinishedDestination(const DestinationFile &destination, uint64_t size)
        : destination_(destination), file_(destination.path.view(), size) {}

    // Between two pieces: the bytes up to end have been given away to be written. When an interruption has arrived,
    // what was given away is brought to the server, a file that was made for it is made as long as that, a person reads
    // how much there is, and the program ends.
    void at(uint64_t end);

  private:
    [[noreturn]] void give_up(uint64_t end) const;

    const DestinationFile &destination_;
    terminal::UnfinishedFile file_;
};
