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

    // Without an end() it failed, of which a person reads behind the reason.
    ~UnfinishedDestination();
    UnfinishedDestination(const UnfinishedDestination &) = delete;
    UnfinishedDestination &operator=(const UnfinishedDestination &) = delete;

    // Everything is there.
    void end() { ended_ = true; }

    // Between two pieces: the bytes up to end have been given away to be written. When an interruption has arrived,
    // what was given away is brought to the server, a file that was made for it is made as long as that, a person reads
    // how much there is, and the program ends.
    void at(uint64_t end);

  private:
    [[noreturn]] void give_up(uint64_t end) const;

    const DestinationFile &destination_;
    terminal::UnfinishedFile file_;
    bool ended_ = false;
};
