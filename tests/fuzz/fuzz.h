// SPDX-License-Identifier: Apache-2.0
// What the fuzzers share.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

// The one function of a fuzzer; libFuzzer calls it, and so does replay.cpp. Gives 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size);

namespace fuzz {

using Bytes = std::span<const std::byte>;

// Ends the program when something that always holds does not.
inline void require(bool holds, const char *what) {
    if (holds) return;
    static_cast<void>(std::fprintf(stderr, "does not hold: %s\n", what));
    std::abort();
}

// The bytes of one run: choices from the front, material from the rest.
class Input {
  public:
    Input(const uint8_t *data, std::size_t size) : left_(std::as_bytes(std::span{data, size})) {}

    bool empty() const { return left_.empty(); }
    Bytes rest() const { return left_; }
    std::string_view text() const { return {reinterpret_cast<const char *>(left_.data()), left_.size()}; }

    // 0 when nothing is left.
    uint8_t byte() {
        const Bytes taken = bytes(1);
        return taken.empty() ? uint8_t{0} : std::to_integer<uint8_t>(taken[0]);
    }
    // At most size bytes.
    Bytes bytes(std::size_t size) {
        const Bytes taken = left_.first(std::min(size, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }
    // Up to a separator, which is taken too, or to the end.
    std::string_view text_until(char separator) {
        const std::string_view taken = text().substr(0, text().find(separator));
        bytes(taken.size() + 1);
        return taken;
    }

  private:
    Bytes left_;
};

}  // namespace fuzz
