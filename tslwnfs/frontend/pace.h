// SPDX-License-Identifier: Apache-2.0
// Whether the files of a command are waited for rather than worked on, so that several at once would be faster.
#pragma once

#include <chrono>
#include <cstdint>

class Pace {
  public:
    // Around each file that is taken by itself.
    void begin();
    void end();

    bool is_waiting() const { return waits_ >= kWaits; }

    // A file that took so long, computed so long meanwhile and moved so many bytes, was waited for.
    static bool is_wait(std::chrono::nanoseconds taken, std::chrono::nanoseconds computed, uint64_t bytes);

  private:
    static constexpr unsigned kWaits = 4;  // files one behind the other; a single one tells of a hiccup

    std::chrono::steady_clock::time_point start_;
    std::chrono::nanoseconds computed_{};
    uint64_t bytes_ = 0;
    unsigned waits_ = 0;
};
