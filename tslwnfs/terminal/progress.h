// SPDX-License-Identifier: Apache-2.0
// The line about a transfer that takes a while.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace terminal {

// While one lives and longer than a second, the terminal shows the name of a file, how much of it has been transferred,
// at what rate, and when it will be through.
class Progress {
  public:
    using Clock = std::chrono::steady_clock;

    // name: of a file, shown by its end when there is little room. total: bytes; 0 = nothing is shown.
    Progress(std::string_view name, uint64_t total);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Tells how many bytes are through.
    void at(uint64_t done);
    // The same, at a time of the caller's.
    void at(uint64_t done, Clock::time_point now);

  private:
    std::string name_;
    uint64_t total_;
    Clock::time_point start_;
    Clock::time_point next_;  // when it is shown again
};

// The line, at most so many columns wide: the narrower, the less it tells. name is printable, total above 0.
std::string progress_line(std::string_view name, uint64_t done, uint64_t total, std::chrono::duration<double> elapsed,
                          std::size_t columns);

}  // namespace terminal
