// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/path_text.h"

#include <algorithm>

namespace nfstdm {

bool path_is_absolute(std::string_view path) {
    const auto first = path.substr(0, path.find('/'));
    return path.starts_with('/') || first.ends_with(':');
}

Components split_path(std::string_view path) {
    Components components;
    components.reserve(static_cast<std::size_t>(std::ranges::count(path, '/')) + 1);
    while (!path.empty()) {
        const auto end = std::min(path.find('/'), path.size());
        const auto component = path.substr(0, end);
        if (!component.empty() && component != ".") components.emplace_back(component);
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return components;
}

void collapse_parents(Components &components) {
    if (std::ranges::find(components, "..") == components.end()) return;
    Components kept;
    for (auto &component : components) {
        if (component != "..")
            kept.push_back(std::move(component));
        else if (!kept.empty())
            kept.pop_back();
    }
    components = std::move(kept);
}

std::string join_path(const Components &components) {
    std::string path;
    for (const auto &component : components) {
        if (!path.empty() || !component.ends_with(':')) path += '/';
        path += component;
    }
    return path.empty() ? "/" : path;
}

}  // namespace nfstdm
