// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/exports.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "nfstdm/nfs3/constants.h"

namespace loopnfsd {

namespace {

uint32_t id_of(std::string_view name) {
    uint32_t hash = 2166136261;
    for (const char letter : name)
        hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619;
    return hash;
}

// "/a/" is "/a"; the root stays "/".
std::string_view without_trailing_slashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/')
        path.remove_suffix(1);
    return path;
}

bool lies_in(std::string_view path, std::string_view name) {
    if (name == "/") return path.starts_with('/');
    return path.starts_with(name) && (path.size() == name.size() || path[name.size()] == '/');
}

}  // namespace

std::string ExportTable::add(std::string_view name, const std::string &folder, bool read_only) {
    name = without_trailing_slashes(name);
    if (!name.starts_with('/')) return "the name of export \"" + std::string(name) + "\" does not begin with /";
    if (name.size() > nfstdm::mount3::kPathMaximum) return "the name of an export is too long";
    const uint32_t id = id_of(name);
    if (by_id(id) != nullptr) return "export " + std::string(name) + " is given twice";
    UniqueFd root(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!root) return "cannot serve " + folder + ": " + std::generic_category().message(errno);
    exports_.push_back({std::string(name), folder, read_only, id, std::move(root)});
    return {};
}

const Export *ExportTable::by_id(uint32_t id) const {
    const auto found = std::ranges::find(exports_, id, &Export::id);
    return found == exports_.end() ? nullptr : &*found;
}

const Export *ExportTable::containing(std::string_view path, std::string_view &below) const {
    const Export *best = nullptr;
    for (const Export &candidate : exports_)
        if (lies_in(path, candidate.name) && (best == nullptr || candidate.name.size() > best->name.size()))
            best = &candidate;
    below = best == nullptr ? std::string_view{} : path.substr(best->name.size());
    while (below.starts_with('/'))
        below.remove_prefix(1);
    return best;
}

}  // namespace loopnfsd
