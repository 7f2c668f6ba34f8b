// SPDX-License-Identifier: Apache-2.0
// Words and numbers of the command line and of the control.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace loopnfsd {

// Equal but for the case of ASCII letters.
bool same_word(std::string_view left, std::string_view right);

// A decimal number that fits 64 bits, nothing before or after it.
std::optional<uint64_t> parse_number(std::string_view text);

// The same with an optional K, M, G or T behind it: a power of 1024.
std::optional<uint64_t> parse_bytes(std::string_view text);

// The parts between separators; an empty text is one empty part.
std::vector<std::string_view> split(std::string_view text, char separator);

std::string_view trim(std::string_view text);

}  // namespace loopnfsd
