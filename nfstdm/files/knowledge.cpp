// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/knowledge.h"

#include <cstddef>
#include <cstring>
#include <optional>
#include <type_traits>

namespace nfstdm {
namespace {

// A record is a head and an entry for each component, the name behind it.
struct Head {
    std::size_t mount = 0;  // its number
    FileHandle root;
};

struct Entry {
    ObjectCache::Known known;
    std::size_t name_size = 0;
};

template <class Part>
void append(std::string &record, const Part &part) {
    static_assert(std::is_trivially_copyable_v<Part>);
    record.append(reinterpret_cast<const char *>(&part), sizeof part);
}

template <class Part>
bool take(std::string_view &record, Part &part) {
    static_assert(std::is_trivially_copyable_v<Part>);
    if (record.size() < sizeof part) return false;
    std::memcpy(&part, record.data(), sizeof part);
    record.remove_prefix(sizeof part);
    return true;
}

std::size_t number_of(const MountSet &mounts, const MountedVolume *mount) {
    std::size_t number = 0;
    while (&mounts.mount(number) != mount)
        ++number;
    return number;
}

std::optional<ObjectCache::Known> known_directory(MountedVolume &mount, const FileHandle &directory,
                                                  const std::string &name) {
    auto known = mount.known(directory, name);
    if (!known && mount.lookup(directory, name).ok()) known = mount.known(directory, name);
    if (known && known->attributes.type != FileType::directory) known.reset();
    return known;
}

bool is_sound(const FileHandle &handle) {
    return handle.size <= FileHandle::kMaximum;
}

}  // namespace

std::string knowledge_of(const MountSet &mounts, std::string_view path) {
    if (!path_is_absolute(path)) return {};
    Components components = split_path(path);
    collapse_parents(components);
    const auto [mount, depth] = mounts.find(components);
    if (mount == nullptr || !mount->known_root() || depth == components.size()) return {};
    FileHandle directory = *mount->known_root();
    std::string record;
    append(record, Head{number_of(mounts, mount), directory});
    for (std::size_t at = depth; at < components.size(); ++at) {
        const std::string &name = components[at];
        const bool is_last = at + 1 == components.size();
        const auto known = is_last ? mount->known(directory, name) : known_directory(*mount, directory, name);
        if (!known) break;
        append(record, Entry{*known, name.size()});
        record += name;
        directory = known->handle;
    }
    return record.size() > sizeof(Head) ? record : std::string();
}

bool take_knowledge(const MountSet &mounts, std::string_view record) {
    Head head;
    if (!take(record, head) || head.mount >= mounts.size() || !is_sound(head.root)) return false;
    FileHandle directory = head.root;
    while (!record.empty()) {
        Entry entry;
        if (!take(record, entry) || entry.name_size > record.size() || !is_sound(entry.known.handle)) return false;
        mounts.mount(head.mount).cache().put_known(directory, record.substr(0, entry.name_size), entry.known);
        record.remove_prefix(entry.name_size);
        directory = entry.known.handle;
    }
    return true;
}

}  // namespace nfstdm
