// SPDX-License-Identifier: Apache-2.0
#include "platform/base_home.h"

std::optional<std::string> platform_base_home(std::string_view home) {
    if (home.empty() || home.size() > kBaseDirectoryMaximum) return std::nullopt;
    return std::string(home);
}

std::optional<std::string> platform_base_configuration(std::string_view home) {
    return platform_base_home(home);
}
