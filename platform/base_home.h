// SPDX-License-Identifier: Apache-2.0
// Which directories hold what belongs to an installation home but does not stand in it. Here everything stands in the
// home itself.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

constexpr std::size_t kBaseDirectoryMaximum = 519;  // characters

// The base home and the base configuration directory of a home. Nothing for an empty name and for one that is too long.
std::optional<std::string> platform_base_home(std::string_view home);
std::optional<std::string> platform_base_configuration(std::string_view home);
