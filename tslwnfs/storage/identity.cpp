// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/identity.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "include/tdm.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/storage/transfer.h"

namespace {

constexpr unsigned kLinksMaximum = 40;  // as the storage library follows them

FileTime time_of(const timespec &time) {
    return {static_cast<uint64_t>(time.tv_sec), static_cast<uint64_t>(time.tv_nsec)};
}

FileIdentity identity_of(const TdmAttributes &attributes) {
    return {.server = attributes.server,
            .handle = attributes.handle_digest,
            .file_system = attributes.file_system_id,
            .number = attributes.file_id,
            .link = attributes.type == TDM_TYPE_LINK,
            .directory = attributes.type == TDM_TYPE_DIRECTORY,
            .size = attributes.size,
            .modified = {attributes.modification_seconds, attributes.modification_nanoseconds},
            .changed = {attributes.change_seconds, attributes.change_nanoseconds}};
}

std::optional<FileIdentity> look_at_local(const std::string &path, LastLink last) {
    struct stat status;
    const int result = last == LastLink::follow ? stat(path.c_str(), &status) : lstat(path.c_str(), &status);
    return result == 0 ? std::optional(identity_of(status)) : std::nullopt;
}

std::string_view parent_of(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string_view::npos ? std::string_view{} : path.substr(0, slash);
}

std::string joined(const std::string &directory, std::string_view name) {
    return std::string(directory).append("/").append(name);
}

std::optional<FileIdentity> look_at_itself(const std::string &path, LastLink last_of_local) {
    TdmAttributes attributes = {};
    uint32_t location = TDM_LOCATION_FAILED;
    if (tdm_getattr(ctx, path.c_str(), &attributes, &location) != 0) return std::nullopt;
    if (location == TDM_LOCATION_LOCAL) return look_at_local(path, last_of_local);
    return location == TDM_LOCATION_REMOTE ? std::optional(identity_of(attributes)) : std::nullopt;
}

bool is_remote_link(const std::optional<FileIdentity> &object) {
    return object && !object->local && object->link;
}

std::optional<std::string> target_of(const std::string &link) {
    std::array<char, TDM_TEXT_SIZE> target = {};
    uint32_t location = TDM_LOCATION_FAILED;
    if (tdm_readlink(ctx, link.c_str(), target.data(), &location) != 0) return std::nullopt;
    target.back() = '\0';
    if (location != TDM_LOCATION_REMOTE || target.front() == '\0') return std::nullopt;
    return target.data();
}

std::string take_component(std::string &path) {
    const std::size_t end = std::min(path.find('/'), path.size());
    std::string name = path.substr(0, end);
    path.erase(0, end + 1);
    return name;
}

// The path of a remote object behind every link on its way. ".." is taken of what really holds the name before it,
// which no text tells while there are links. Nothing for links without end.
std::optional<std::string> without_remote_links(std::string path) {
    std::string real;
    unsigned links = 0;
    while (!path.empty()) {
        const std::string name = take_component(path);
        if (name.empty() || name == ".") continue;
        if (name == "..") {
            real.resize(parent_of(real).size());
            continue;
        }
        const bool is_first = real.empty() && name.ends_with(':');
        const std::string next = is_first ? name : joined(real, name);
        if (!is_remote_link(look_at_itself(next, LastLink::keep))) {
            real = next;
            continue;
        }
        const auto target = target_of(next);
        if (!target || ++links > kLinksMaximum) return std::nullopt;
        if (target->starts_with('/')) real.clear();
        path = joined(*target, path);
    }
    return real;
}

// A file system that keeps no more than seconds gives no nanoseconds.
bool is_one_time(const FileTime &one, const FileTime &other) {
    if (one.seconds != other.seconds) return false;
    return one.nanoseconds == other.nanoseconds || one.nanoseconds == 0 || other.nanoseconds == 0;
}

enum class Likeness : uint8_t {
    different,
    doubtful,  // by its numbers one object, in two states: it changed between two looks, or it is chance
    same
};

// A local path and a mount do not tell the same change time.
enum class Times : uint8_t { modification, all };

Likeness compare_states(const FileIdentity &one, const FileIdentity &other, Times times) {
    if (one.size != other.size || !is_one_time(one.modified, other.modified)) return Likeness::doubtful;
    return times == Times::all && !is_one_time(one.changed, other.changed) ? Likeness::doubtful : Likeness::same;
}

Likeness compare_remote(const FileIdentity &one, const FileIdentity &other) {
    if (one.file_system != other.file_system) return Likeness::different;
    const bool known = one.file_system != 0 || (one.server != 0 && other.server != 0);
    if (!known) return Likeness::different;
    if (one.server == other.server && one.server != 0) return Likeness::same;
    return compare_states(one, other, Times::all);
}

Likeness compare(const FileIdentity &one, const FileIdentity &other) {
    if (one.number != other.number) return Likeness::different;
    if (one.local && other.local) {
        return one.file_system == other.file_system ? Likeness::same : Likeness::different;
    }
    if (one.number == 0) return Likeness::different;
    // A device's number here and a file system's there have nothing in common.
    return one.local || other.local ? compare_states(one, other, Times::modification) : compare_remote(one, other);
}

Likeness compare(const std::string &one, const std::string &other) {
    const auto first = look_at(one, LastLink::follow);
    if (!first) return Likeness::different;
    const auto second = look_at(other, LastLink::follow);
    return second ? compare(*first, *second) : Likeness::different;
}

bool is_below(std::string_view path, std::string_view directory) {
    return path == directory || (path.starts_with(directory) && path[directory.size()] == '/');
}

// The nearest directory above a path, or the path itself, that is there.
std::string nearest_existing(std::string path) {
    while (!path.empty() && !look_at(path, LastLink::follow))
        path.resize(parent_of(path).size());
    return path;
}

}  // namespace

bool FileIdentity::is_still(const FileIdentity &before) const {
    return local == before.local && server == before.server && handle == before.handle &&
           file_system == before.file_system && number == before.number;
}

FileIdentity identity_of(const struct stat &status) {
    return {.file_system = status.st_dev,
            .number = status.st_ino,
            .local = true,
            .link = S_ISLNK(status.st_mode),
            .directory = S_ISDIR(status.st_mode),
            .size = static_cast<uint64_t>(status.st_size),
            .modified = time_of(status.st_mtim),
            .changed = time_of(status.st_ctim)};
}

std::optional<FileIdentity> look_at(const std::string &path, LastLink last) {
    auto object = look_at_itself(path, last);
    if (last == LastLink::keep || !is_remote_link(object)) return object;
    const auto target = without_remote_links(path);
    return target ? look_at_itself(*target, last) : std::nullopt;
}

bool is_one_object(const std::string &one, const std::string &other) {
    Likeness likeness = compare(one, other);
    if (likeness == Likeness::doubtful && storage_barrier() == 0) likeness = compare(one, other);
    return likeness == Likeness::same;
}

bool lies_inside(const std::string &path, const std::string &directory) {
    if (is_below(path, directory)) return true;
    const auto target = look_at(directory, LastLink::follow);
    std::string place = nearest_existing(path);
    auto here = look_at(place, LastLink::follow);
    if (here && !here->local) place = without_remote_links(place).value_or(place);
    while (target && here) {
        if (compare(*here, *target) != Likeness::different && is_one_object(place, directory)) return true;
        // The system takes ".." of where a link leads; on a server no link is left.
        place = here->local ? joined(place, "..") : std::string(parent_of(place));
        const auto above = look_at(place, LastLink::follow);
        here = above && !above->is_still(*here) ? above : std::nullopt;  // the root is above itself
    }
    return false;
}
