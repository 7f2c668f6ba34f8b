// SPDX-License-Identifier: Apache-2.0
// A path of at most 512 characters, the most that any path of the utility may have.
#pragma once

#include <cstddef>
#include <string_view>

class PathBuffer {
  public:
    static constexpr std::size_t kSize = 513;  // bytes, the terminator included

    PathBuffer() = default;

    // Replaces or extends the text. Returns false, and leaves the text as it was, when the result would not fit or
    // holds a NUL.
    [[nodiscard]] bool assign(std::string_view text);
    [[nodiscard]] bool append(std::string_view text);

    void clear();
    bool empty() const { return length_ == 0; }
    std::size_t size() const { return length_; }
    const char *c_str() const { return text_; }
    std::string_view view() const { return {text_, length_}; }

    // For functions of the C library and of the storage interface that fill a buffer of kSize bytes: writable() gives
    // the zeroed buffer, and measure() takes over what was written, cutting it at kSize - 1 when no terminator was
    // left.
    char *writable();
    void measure();

  private:
    char text_[kSize] = {};
    std::size_t length_ = 0;
};
