// SPDX-License-Identifier: Apache-2.0
#include "platform/home.h"

#include <unistd.h>

#include <climits>

#include "platform/environment.h"

namespace {

// Cuts the last component off a path; false when there is none.
bool cut_component(std::string &path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return false;
    path.resize(slash);
    return true;
}

}  // namespace

std::size_t platform_marker_length(std::string_view name) {
    if (!name.starts_with('?')) return 0;
    return name.starts_with("?#") || name.starts_with("?=") ? 2 : 1;
}

std::optional<std::string> platform_home(std::string_view marker) {
    if (marker.empty() || platform_marker_length(marker) != marker.size()) return std::nullopt;
    return platform_environment("TESSEL_HOME", kHomeMaximum);
}

std::optional<std::string> platform_program_home() {
    char buffer[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
    if (length <= 0 || static_cast<std::size_t>(length) == sizeof buffer) return std::nullopt;
    std::string home(buffer, static_cast<std::size_t>(length));
    if (!cut_component(home) || !cut_component(home)) return std::nullopt;
    return home;
}
