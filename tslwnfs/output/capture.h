// SPDX-License-Identifier: Apache-2.0
// What a worker process writes while it runs a command on one file, held back for the process in front.
#pragma once

#include <cstddef>
#include <string>

// The bytes for each place that a run writes to.
struct CapturedBytes {
    std::string output, log, trace;

    std::size_t size() const { return output.size() + log.size() + trace.size(); }
    void append(const CapturedBytes &more);
};

// From now on standard output, the log and the trace are held back; overflow takes what is more than fits a message.
using Overflow = void (*)(const CapturedBytes &bytes);
constexpr std::size_t kCapturedMaximum = std::size_t{32} << 10;
[[nodiscard]] bool capture_output(Overflow overflow);

// What has been written since, or since the last such call.
CapturedBytes take_captured();

// For the process in front: writes it to where it belongs.
void deliver(const CapturedBytes &bytes);
