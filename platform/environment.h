// SPDX-License-Identifier: Apache-2.0
// The environment, with a limit to what is believed.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

// The value of a variable; nothing when it is unset, empty or longer than maximum bytes.
std::optional<std::string> platform_environment(const char *name, std::size_t maximum);
