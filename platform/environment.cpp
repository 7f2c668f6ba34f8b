// SPDX-License-Identifier: Apache-2.0
#include "platform/environment.h"

#include <cstdlib>
#include <cstring>

std::optional<std::string> platform_environment(const char *name, std::size_t maximum) {
    const char *value = std::getenv(name);
    if (value == nullptr || value[0] == '\0' || std::strlen(value) > maximum) return std::nullopt;
    return value;
}
