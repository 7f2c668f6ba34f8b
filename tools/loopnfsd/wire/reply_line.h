// SPDX-License-Identifier: Apache-2.0
// When the replies of a connection go out: at once, unless delays or reordering were asked for.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <vector>

#include "tools/loopnfsd/wire/record.h"

namespace loopnfsd {

using Clock = std::chrono::steady_clock;

struct LineConditions {
    Clock::duration rtt{};    // a reply comes so much later; any number may be on the way
    Clock::duration delay{};  // a call takes so long; one after the other
    std::size_t reorder = 0;  // replies held to be sent in reverse order
};

class ReplyLine {
  public:
    void add(Record reply, Clock::time_point now, const LineConditions &conditions);

    // Moves what is due to the end of a list. Gives how often replies were turned around.
    std::size_t release(Clock::time_point now, const LineConditions &conditions, std::deque<Record> &due);

    // When release() will have something; nothing when the line is empty.
    std::optional<Clock::time_point> next() const;

    std::size_t bytes() const { return bytes_; }  // of all replies in the line

  private:
    struct Waiting {
        Clock::time_point due;
        Record reply;
    };
    bool give_up_held(std::deque<Record> &due);

    std::deque<Waiting> waiting_;
    std::vector<Record> held_;
    Clock::time_point held_until_{};
    Clock::time_point busy_until_{};
    std::size_t bytes_ = 0;
};

}  // namespace loopnfsd
