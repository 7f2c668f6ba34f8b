// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cwchar>
#include <cwctype>

namespace terminal {
namespace {

struct Character {
    std::size_t length;  // bytes
    bool printed;
    std::size_t columns;
};

// The text's first character in the locale's encoding; what is none counts as one byte.
Character first_character(std::string_view text) {
    std::mbstate_t state = {};
    wchar_t wide = 0;
    const std::size_t length = std::mbrtowc(&wide, text.data(), text.size(), &state);
    if (length == 0 || length > text.size()) return {1, false, 1};
    if (std::iswprint(static_cast<std::wint_t>(wide)) == 0) return {length, false, 1};
    return {length, true, static_cast<std::size_t>(std::max(wcwidth(wide), 0))};
}

}  // namespace

std::string printable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const Character character = first_character(text);
        if (character.printed)
            result += text.substr(0, character.length);
        else
            result += '?';
        text.remove_prefix(character.length);
    }
    return result;
}

std::size_t columns_of(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const Character character = first_character(text);
        columns += character.columns;
        text.remove_prefix(character.length);
    }
    return columns;
}

std::string fitted(std::string_view text, std::size_t columns) {
    constexpr std::string_view kCut = "...";
    std::size_t width = columns_of(text);
    if (width <= columns) return std::string(text);
    if (columns <= kCut.size()) return std::string(columns, '.');
    while (width > columns - kCut.size()) {
        const Character character = first_character(text);
        width -= character.columns;
        text.remove_prefix(character.length);
    }
    return std::string(kCut) + std::string(text);
}

std::string bytes_text(uint64_t bytes) {
    constexpr std::array kUnits = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    constexpr double kStep = 1024;
    constexpr double kThreeDigits = 99.95;  // rounds to a hundred
    auto number = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (number >= kStep - 0.5) {
        number /= kStep;
        ++unit;
    }
    char text[16];
    std::snprintf(text, sizeof text, "%.*f %s", unit > 0 && number < kThreeDigits ? 1 : 0, number, kUnits.at(unit));
    return text;
}

}  // namespace terminal
