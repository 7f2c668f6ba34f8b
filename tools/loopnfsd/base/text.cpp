// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/base/text.h"

#include <algorithm>
#include <charconv>
#include <limits>

namespace loopnfsd {

namespace {

char lower(char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace

bool same_word(std::string_view left, std::string_view right) {
    return std::ranges::equal(left, right, {}, lower, lower);
}

std::optional<uint64_t> parse_number(std::string_view text) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<uint64_t> parse_bytes(std::string_view text) {
    constexpr std::string_view kUnits = "kmgt";
    const auto unit = text.empty() ? std::string_view::npos : kUnits.find(lower(text.back()));
    if (unit == std::string_view::npos) return parse_number(text);
    const auto value = parse_number(text.substr(0, text.size() - 1));
    const auto shift = 10 * (unit + 1);
    if (!value || *value > std::numeric_limits<uint64_t>::max() >> shift) return std::nullopt;
    return *value << shift;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    for (;;) {
        const auto end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

std::string_view trim(std::string_view text) {
    constexpr std::string_view kSpace = " \t\r\n";
    const auto begin = text.find_first_not_of(kSpace);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kSpace) - begin + 1);
}

}  // namespace loopnfsd
