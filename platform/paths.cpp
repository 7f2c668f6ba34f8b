// SPDX-License-Identifier: Apache-2.0
#include "platform/paths.h"

#include <unistd.h>

#include <climits>
#include <string>

#include "platform/home.h"

namespace {

bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The length of a first component that makes a path absolute without a leading slash: "nfs:", "c:", "c:\x"; else 0.
std::size_t root_length(std::string_view path) {
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string_view first = path.substr(0, end);
    const bool drive = first.size() > 2 && is_letter(first[0]) && first[1] == ':' && first[2] == '\\';
    const bool named = first.size() > 1 && first.ends_with(':');
    return drive || named || first.starts_with("nfs:") ? end : 0;
}

// Adds the components of path to an absolute text, resolving "." and "..", never above the first root bytes.
void add_components(std::string &text, std::size_t root, std::string_view path) {
    while (!path.empty()) {
        const std::string_view component = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(component.size() + 1, path.size()));
        if (component.empty() || component == ".") continue;
        if (component == "..") {
            const std::size_t slash = text.rfind('/');
            text.resize(slash == std::string::npos || slash < root ? root : slash);
        } else {
            text.append("/").append(component);
        }
    }
}

}  // namespace

bool platform_normalize_path(std::string_view path, PathBuffer &normalized) {
    if (path.empty()) return false;
    std::string text(path.substr(0, root_length(path)));
    const std::size_t root = text.size();
    if (root == 0 && !path.starts_with('/')) {
        char directory[PATH_MAX];
        if (getcwd(directory, sizeof directory) == nullptr) return false;
        add_components(text, root, directory);
    }
    add_components(text, root, path.substr(root));
    if (text.size() == root && (root == 0 || path.size() > root)) text.append("/");
    return normalized.assign(text);
}

bool platform_translate_name(std::string_view name, PathBuffer &translated) {
    const std::size_t marker = platform_marker_length(name);
    if (marker == 0) return translated.assign(name);
    const auto home = platform_home(name.substr(0, marker));
    return home && translated.assign(std::string(*home).append(name.substr(marker)));
}
