// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs4/pseudo_root.h"

#include <algorithm>
#include <functional>

#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"

namespace loopnfsd::nfs4 {

namespace {

constexpr uint32_t kMark = 0x70736575;     // in front of a handle, where those of objects have another
constexpr std::size_t kPathMaximum = 120;  // with the mark and the length, what a handle holds

// What stands between a path and the next slash, when the name lies below the path; else nothing.
std::string_view next_component(std::string_view path, std::string_view name) {
    const std::size_t skipped = path == "/" ? 1 : path.size() + 1;
    if (name.size() <= skipped || !name.starts_with(path) || name[skipped - 1] != '/') return {};
    const std::string_view rest = name.substr(skipped);
    return rest.substr(0, rest.find('/'));
}

}  // namespace

const Export *PseudoRoot::export_at(std::string_view path) const {
    const auto found = std::ranges::find(exports_.all(), path, &Export::name);
    return found == exports_.all().end() ? nullptr : &*found;
}

bool PseudoRoot::has(std::string_view path) const {
    return export_at(path) == nullptr && (path == "/" || !names_in(path).empty());
}

std::vector<std::string> PseudoRoot::names_in(std::string_view path) const {
    std::vector<std::string> names;
    for (const Export &each : exports_.all()) {
        const std::string_view name = next_component(path, each.name);
        if (!name.empty() && std::ranges::find(names, name) == names.end()) names.emplace_back(name);
    }
    std::ranges::sort(names);
    return names;
}

std::string PseudoRoot::child(std::string_view path, std::string_view name) {
    return std::string(path == "/" ? "" : path).append("/").append(name);
}

std::string PseudoRoot::parent(std::string_view path) {
    const auto slash = path.rfind('/');
    return std::string(slash == 0 ? "/" : path.substr(0, slash));
}

std::vector<std::byte> PseudoRoot::handle_of(std::string_view path) {
    nfstdm::xdr::Writer out;
    out.put_u32(kMark);
    out.put_string(path);
    return out.take();
}

std::optional<std::string> PseudoRoot::path_of(std::span<const std::byte> handle) const {
    nfstdm::xdr::Reader in(handle);
    uint32_t mark = 0;
    std::string_view path;
    if (!in.get_u32(mark) || mark != kMark || !in.get_string(path, kPathMaximum) || !in.finished() || !has(path))
        return std::nullopt;
    return std::string(path);
}

struct statx PseudoRoot::status_of(std::string_view path) const {
    struct statx status {};
    status.stx_mode = S_IFDIR | 0555;
    status.stx_nlink = static_cast<uint32_t>(2 + names_in(path).size());
    status.stx_ino = std::hash<std::string_view>{}(path) | 1;
    return status;
}

}  // namespace loopnfsd::nfs4
