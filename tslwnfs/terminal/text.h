// SPDX-License-Identifier: Apache-2.0
// Texts as a terminal can show them. Names of files may hold anything, control sequences included.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace terminal {

// The text with a question mark for every character that the locale does not print.
std::string printable(std::string_view text);

// The columns that a printable text takes.
std::size_t columns_of(std::string_view text);

// The end of a printable text, behind three dots when it has to be cut to so many columns.
std::string fitted(std::string_view text, std::size_t columns);

// A number of bytes with three digits at least: "812 B", "1.5 GiB", "23.4 MiB", "112 MiB".
std::string bytes_text(uint64_t bytes);

}  // namespace terminal
