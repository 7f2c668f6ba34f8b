// SPDX-License-Identifier: Apache-2.0
// A destination while it is being written: what a person sees of it, and what an interruption or a failure leaves.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "tslwnfs/commands/destination_file.h"
#include "tslwnfs/terminal/interruption.h"
#include "tslwnfs/terminal/progress.h"

class UnfinishedDestination {
  public:
    // The destination is open. size: bytes that it is to have; 0 when nobody knows.
    UnfinishedDestination(const DestinationFile &destination, uint64_t size);

    // Without an end() it failed: a remote file that was made for it is cut back to what its server took, and a person
    // reads behind the reason how much of it there is.
    ~UnfinishedDestination();
    UnfinishedDestination(const UnfinishedDestination &) = delete;
    UnfinishedDestination &operator=(const UnfinishedDestination &) = delete;

    // From now on the terminal shows how much of the transfer is through: of total bytes, 0 when nobody knows, that are
    // written from begin on.
    void show_progress(std::string_view name, uint64_t begin, uint64_t total);

    // Between two pieces: the bytes up to end have been given away to be written. When an interruption has arrived,
    // what was given away is brought to the server, a file that was made for it is made as long as that, a person reads
    // how much there is, and the program ends.
    void at(uint64_t end);

    // The bytes up to end were the last ones: waits until the server took them, in view of the person and open to an
    // interruption. Whether they could be written tells what finishes the file.
    void wait_for_server(uint64_t end);

    // Everything is there.
    void end() { ended_ = true; }

  private:
    uint64_t taken() const;
    std::optional<uint64_t> settle() const;
    std::optional<uint64_t> settle_remote() const;

    const DestinationFile &destination_;
    terminal::UnfinishedFile file_;
    std::optional<terminal::Progress> progress_;
    uint64_t begin_ = 0;
    uint64_t end_ = 0;
    bool ended_ = false;
};
