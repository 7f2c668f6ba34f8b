// SPDX-License-Identifier: Apache-2.0
#include "platform/path_buffer.h"

#include <cstring>

bool PathBuffer::assign(std::string_view text) {
    if (text.size() >= kSize || text.find('\0') != std::string_view::npos) return false;
    std::memmove(text_, text.data(), text.size());
    text_[text.size()] = '\0';
    length_ = text.size();
    return true;
}

bool PathBuffer::append(std::string_view text) {
    if (text.size() >= kSize - length_ || text.find('\0') != std::string_view::npos) return false;
    std::memmove(text_ + length_, text.data(), text.size());
    length_ += text.size();
    text_[length_] = '\0';
    return true;
}

void PathBuffer::clear() {
    text_[0] = '\0';
    length_ = 0;
}

char *PathBuffer::writable() {
    std::memset(text_, 0, kSize);
    length_ = 0;
    return text_;
}

void PathBuffer::measure() {
    length_ = strnlen(text_, kSize - 1);
    text_[length_] = '\0';
}
