// SPDX-License-Identifier: Apache-2.0
// What of a source has to be transferred so that its copy is as sparse as it is: its holes are neither read nor
// written, where the destination has nothing yet that would show through.
#pragma once

#include <cstdint>

#include "tslwnfs/commands/destination_file.h"
#include "tslwnfs/commands/source_file.h"

struct ContentRange {
    uint64_t begin = 0;
    uint64_t end = 0;  // bytes; as begin when nothing is left
};

class SourceContent {
  public:
    // Both must outlive the object.
    SourceContent(const SourceFile &source, const DestinationFile &destination);

    // The next bytes from an offset on that are to be written. A local source is positioned where they begin.
    ContentRange next(uint64_t offset);

    // Where the holes are not known, zeros need not be written either: the destination has a hole there by itself.
    bool zeros_are_holes() const { return may_skip_ && destination_.local && !source_.local && !holes_known_; }

  private:
    bool find_local(uint64_t offset, ContentRange &found) const;

    const SourceFile &source_;
    const DestinationFile &destination_;
    const bool may_skip_;
    const uint64_t old_end_;  // of what the destination holds already
    bool holes_known_;
};
