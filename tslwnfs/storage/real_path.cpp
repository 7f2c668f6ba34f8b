// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/real_path.h"

#include <climits>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <optional>
#include <vector>

#include "include/tdm.h"
#include "tslwnfs/options/options.h"

namespace {

constexpr int kLinkMaximum = 40;  // as many as the storage library follows

std::vector<std::string> components(std::string_view path) {
    std::vector<std::string> names;
    while (!path.empty()) {
        const std::string_view name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(name.size() + 1, path.size()));
        if (!name.empty() && name != ".") names.emplace_back(name);
    }
    return names;
}

// The target of a link on a server; nothing for whatever else a path may be.
std::optional<std::string> remote_target(const std::string &path) {
    TdmAttributes attributes = {};
    uint32_t location = 0;
    if (tdm_getattr(ctx, path.c_str(), &attributes, &location) != 0 || location != TDM_LOCATION_REMOTE) return {};
    if (attributes.type != TDM_TYPE_LINK) return {};
    std::string target(TDM_TEXT_SIZE, '\0');
    if (tdm_readlink(ctx, path.c_str(), target.data(), &location) != 0 || location != TDM_LOCATION_REMOTE) return {};
    target.resize(target.find('\0'));
    return target;
}

void remove_last(std::string &path) {
    path.resize(path.empty() ? 0 : path.rfind('/'));
}

}  // namespace

std::string real_remote_path(std::string_view path, LastComponent last) {
    const std::vector<std::string> names = components(path);
    std::deque<std::string> pending(names.begin(), names.end());
    std::string real;
    for (int links = 0; links <= kLinkMaximum;) {
        if (pending.empty()) return real.empty() ? "/" : real;
        const std::string name = std::move(pending.front());
        pending.pop_front();
        if (name == "..") {
            remove_last(real);
            continue;
        }
        real.append("/").append(name);
        const bool looked_at = !pending.empty() || last == LastComponent::followed;
        const std::optional<std::string> target = looked_at ? remote_target(real) : std::nullopt;
        if (!target) continue;
        ++links;
        remove_last(real);
        if (target->starts_with('/')) real.clear();
        const std::vector<std::string> longer = components(*target);
        pending.insert(pending.begin(), longer.begin(), longer.end());
    }
    return {};
}

std::string real_local_path(const std::string &path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos) return path;
    const std::string name = path.substr(slash + 1);
    // The last component is a name, unless it is dots.
    const bool named = !name.empty() && name != "." && name != "..";
    const std::string followed = named ? path.substr(0, slash + 1) : path;
    char real[PATH_MAX];
    if (realpath(followed.c_str(), real) == nullptr) return path;
    if (!named) return real;
    return std::string(real) == "/" ? "/" + name : real + ("/" + name);
}
