// SPDX-License-Identifier: Apache-2.0
// The line about a transfer that takes a while.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

namespace terminal {

// While one lives and longer than a second, the terminal shows the name of a file, how much of it has been transferred,
// at what rate, and when it will be through at the rate of the last seconds.
class Progress {
  public:
    using Clock = std::chrono::steady_clock;

    // name: of a file, shown by its end when there is little room. total: bytes; 0 when nobody knows.
    Progress(std::string_view name, uint64_t total);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Whether at() would show anything: for whoever has to find out how many bytes are through.
    bool is_due() const;
    // Tells how many bytes are through.
    void at(uint64_t done);
    // The same, at a time of the caller's.
    void at(uint64_t done, Clock::time_point now);

  private:
    struct Sample {
        Clock::time_point time;
        uint64_t done;
    };
    double rate_at(Clock::time_point now, uint64_t done);

    std::string name_;
    uint64_t total_;
    std::deque<Sample> samples_;  // of the last seconds
    Clock::time_point next_;      // when it is shown again
};

// What was written in this process, or by those that work for it: bytes.
uint64_t bytes_through();
void count_bytes(uint64_t more);
// For worker processes: what they write is added up there.
void count_into(std::atomic<uint64_t> &bytes);

// The same line for many files, of which several are under way.
class FilesProgress {
  public:
    using Clock = std::chrono::steady_clock;
    static constexpr auto kInterval = std::chrono::milliseconds(200);

    FilesProgress(std::string_view name, std::size_t files);
    ~FilesProgress();
    FilesProgress(const FilesProgress &) = delete;
    FilesProgress &operator=(const FilesProgress &) = delete;

    // Tells how many are through, and how many bytes of these and the others.
    void at(std::size_t files, uint64_t bytes);

  private:
    std::string name_;
    std::size_t files_;
    Clock::time_point start_;
    Clock::time_point next_;
};

struct FilesDone {
    std::size_t files = 0;
    std::size_t of = 0;
    uint64_t bytes = 0;
};

// Its line; as progress_line().
std::string files_line(std::string_view name, const FilesDone &done, std::chrono::duration<double> elapsed,
                       std::size_t columns);

// The line, at most so many columns wide: the narrower, the less it tells. name is printable, total 0 when nobody
// knows; rate is in bytes a second.
std::string progress_line(std::string_view name, uint64_t done, uint64_t total, double rate, std::size_t columns);

}  // namespace terminal
