// SPDX-License-Identifier: Apache-2.0
#include "platform/codeset.h"

#include <iconv.h>

#include <algorithm>
#include <cstdint>

namespace {

constexpr char kUtf8[] = "UTF-8";

// A conversion of the C library, closed at the end.
class Conversion {
  public:
    Conversion(const char *from, const char *into) : handle_(iconv_open(into, from)) {}
    ~Conversion() {
        if (valid()) iconv_close(handle_);
    }
    Conversion(const Conversion &) = delete;
    Conversion &operator=(const Conversion &) = delete;

    // The text converted; nothing when a character cannot be.
    std::optional<std::string> convert(std::string text) {
        if (!valid()) return std::nullopt;
        constexpr std::size_t kWidest = 4;  // bytes that a byte of UTF-8 becomes in any codeset of a locale
        std::string converted(kWidest * text.size(), '\0');
        char *from = text.data();
        char *into = converted.data();
        std::size_t left = text.size(), room = converted.size();
        // A positive result counts characters that were replaced by similar ones.
        if (iconv(handle_, &from, &left, &into, &room) != 0) return std::nullopt;
        converted.resize(converted.size() - room);
        return converted;
    }

  private:
    bool valid() const { return reinterpret_cast<intptr_t>(handle_) != -1; }

    iconv_t handle_;
};

bool is_ascii(const std::string &text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

std::optional<std::string> text_in_codeset(const std::string &text, const std::string &codeset) {
    if (codeset.empty() || is_ascii(text)) return text;
    if (!Conversion(kUtf8, kUtf8).convert(text)) return text;
    return Conversion(kUtf8, codeset.c_str()).convert(text);
}
