// SPDX-License-Identifier: Apache-2.0
// What goes between the process in front and its workers: a job that way, its outcome back.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tslwnfs/output/capture.h"
#include "tslwnfs/terminal/reasons.h"

struct Job {
    std::string source, destination;  // ready for use
    std::vector<std::string> known;   // to the storage library
    std::vector<std::string> held;    // directories that stay open meanwhile; their descriptors go with the record
    bool operator==(const Job &) const = default;
};

// What becomes of a run after a job.
enum class After : uint8_t {
    goes_on,
    ends,    // the process has to end: a transfer failed
    undone,  // nothing was done: it is a directory, which is for the process in front
};

struct Outcome {
    uint32_t status = 0;
    After after = After::goes_on;
    terminal::Notes notes;
    std::vector<std::string> said;  // at the terminal, in order
    CapturedBytes written;          // as far as it has not come already
};

std::string pack(const Job &job);
std::string pack(const Outcome &outcome);
std::string pack(const CapturedBytes &written);
// False for what is no such record.
[[nodiscard]] bool unpack(std::string_view record, Job &job);
[[nodiscard]] bool unpack(std::string_view record, Outcome &outcome);
[[nodiscard]] bool unpack(std::string_view record, CapturedBytes &written);
