// SPDX-License-Identifier: Apache-2.0
// Where the installation stands.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

constexpr std::size_t kHomeMaximum = 259;  // characters

// The home that a marker stands for. All three markers, "?", "?#" and "?=", name the directory in TESSEL_HOME; anything
// else, and a variable that is unset, empty or too long, yields nothing.
std::optional<std::string> platform_home(std::string_view marker);

// The home whose bin directory holds the running program.
std::optional<std::string> platform_program_home();

// The length of the home marker a name begins with; 0 for none.
std::size_t platform_marker_length(std::string_view name);
