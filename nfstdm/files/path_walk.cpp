// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/path_walk.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

namespace nfstdm {
namespace {

constexpr unsigned kLinksMaximum = 40;

// Walks again from the mount point after every link; what was looked up before is in the cache.
class Walk {
  public:
    Walk(const MountSet &mounts, LastLink last, Components path)
        : mounts_(mounts), last_(last), path_(std::move(path)) {}

    Result<Place> run();

  private:
    enum class Step { arrived, again };
    Result<Step> descend(MountedVolume &mount, std::size_t depth);
    void take_back(std::size_t at);
    Result<Step> enter(FileHandle &directory, std::size_t at);
    Result<Step> arrive_at_root(const FileHandle &root);
    Result<Step> follow(std::size_t at, const std::string &target);

    const MountSet &mounts_;
    const LastLink last_;
    Components path_;
    unsigned links_ = 0;
    Place place_;
};

Result<Place> Walk::run() {
    while (true) {
        // Only what stands before the first ".." is a path by its text.
        const auto parent = std::find(path_.begin(), path_.end(), "..");
        const auto found = mounts_.find({path_.begin(), parent});
        if (found.mount == nullptr && parent != path_.end()) {
            path_.erase(parent == path_.begin() ? parent : std::prev(parent), std::next(parent));
            continue;
        }
        if (found.mount == nullptr && links_ == 0) return Place{};
        if (found.mount == nullptr)
            return Status{EXDEV, "a link leads to " + join_path(path_) + ", which is on no mount"};
        auto step = descend(*found.mount, found.depth);
        if (!step.ok()) return step.status();
        if (step.value() == Step::again) continue;
        place_.components = std::move(path_);
        return std::move(place_);
    }
}

Result<Walk::Step> Walk::descend(MountedVolume &mount, std::size_t depth) {
    const auto all_below = std::span(path_).subspan(depth);
    const auto below =
        all_below.first(static_cast<std::size_t>(std::ranges::find(all_below, "..") - all_below.begin()));
    const auto root = mount.root(below);
    if (!root.ok()) return root.status();
    place_ = {};
    place_.mount = &mount;
    if (depth == path_.size()) return arrive_at_root(root.value());
    FileHandle directory = root.value();
    mount.look_ahead(directory, below);
    for (std::size_t at = depth; at < path_.size(); ++at) {
        if (path_[at] == "..") {
            take_back(at);
            return Step::again;
        }
        auto step = enter(directory, at);
        if (!step.ok() || step.value() == Step::again) return step;
    }
    return Step::arrived;
}

// Everything ahead of a ".." is walked and no link, so it can be taken back by text.
void Walk::take_back(std::size_t at) {
    path_.erase(path_.begin() + static_cast<std::ptrdiff_t>(at == 0 ? 0 : at - 1),
                path_.begin() + static_cast<std::ptrdiff_t>(at + 1));
}

// From a directory to what the next component names, or to where that leads.
Result<Walk::Step> Walk::enter(FileHandle &directory, std::size_t at) {
    const bool is_last = at + 1 == path_.size();
    if (is_last && last_ == LastLink::listed && (place_.listed = place_.mount->listed(directory, path_[at])))
        return Step::arrived;
    const auto object = place_.mount->lookup(directory, path_[at]);
    if (!object.ok() && !(is_last && object.status().number() == ENOENT)) return object.status();
    const bool is_link = object.ok() && object.value().attributes.type == FileType::link;
    if (is_link && !(is_last && last_ != LastLink::follow)) {
        auto target = place_.mount->read_link(object.value().handle);
        if (!target.ok()) return target.status();
        return follow(at, target.value());
    }
    if (!is_last) {
        directory = object.value().handle;
        return Step::arrived;
    }
    place_.directory = directory;
    place_.name = path_[at];
    if (object.ok()) place_.object = object.value();
    return Step::arrived;
}

Result<Walk::Step> Walk::arrive_at_root(const FileHandle &root) {
    const auto attributes = place_.mount->attributes(root);
    if (!attributes.ok()) return attributes.status();
    place_.object = FoundObject{root, attributes.value()};
    return Step::arrived;
}

// Puts the target of the link at a component into its place.
Result<Walk::Step> Walk::follow(std::size_t at, const std::string &target) {
    if (++links_ > kLinksMaximum) return Status{ELOOP, "too many links"};
    if (target.empty()) return Status{ENOENT, "the link " + path_[at] + " leads nowhere"};
    if (target.find('\0') != std::string::npos) return Status{EIO, "the link " + path_[at] + " holds no path"};
    Components longer;
    if (!target.starts_with('/')) longer.assign(path_.begin(), path_.begin() + static_cast<std::ptrdiff_t>(at));
    std::ranges::copy(split_path(target), std::back_inserter(longer));
    longer.insert(longer.end(), path_.begin() + static_cast<std::ptrdiff_t>(at + 1), path_.end());
    path_ = std::move(longer);
    return Step::again;
}

}  // namespace

std::optional<Place> known_place(const MountSet &mounts, std::string_view path) {
    if (!path_is_absolute(path)) return {};
    Place place;
    place.components = split_path(path);
    collapse_parents(place.components);
    const auto [mount, depth] = mounts.find(place.components);
    if (mount == nullptr || !mount->known_root() || depth == place.components.size()) return {};
    place.mount = mount;
    place.directory = mount->known_root();
    for (std::size_t at = depth; at < place.components.size(); ++at) {
        if (place.object && place.object->attributes.type != FileType::directory) return {};
        if (place.object) place.directory = place.object->handle;
        place.name = place.components[at];
        const auto known = mount->known(*place.directory, place.name);
        if (!known) return {};
        place.object = FoundObject{known->handle, known->attributes};
    }
    return place;
}

Status absence(const Place &place) {
    return place.mount->named({ENOENT, "no such file or directory"});
}

Result<Place> walk_path(const MountSet &mounts, std::string_view path, LastLink last) {
    if (!path_is_absolute(path)) return Place{};
    Components components = split_path(path);
    collapse_parents(components);
    auto place = Walk(mounts, last, std::move(components)).run();
    if (!place.ok()) return place.status().in(std::string(path));
    return place;
}

}  // namespace nfstdm
