// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/object_cache.h"

namespace nfstdm {

void ObjectCache::put_attributes(const FileHandle &object, const std::optional<Attributes> &attributes) {
    if (attributes) attributes_.put(object, *attributes, now_() + kLifetime);
}

std::optional<Attributes> ObjectCache::attributes(const FileHandle &object) {
    const Attributes *found = attributes_.find(object, now_());
    return found == nullptr ? std::nullopt : std::optional(*found);
}

void ObjectCache::put_name(const FileHandle &directory, std::string_view name,
                           const std::optional<FileHandle> &handle) {
    const std::chrono::seconds lifetime = handle ? kLifetime : kAbsentLifetime;
    names_.put(key(directory, name), handle, now_() + lifetime);
}

ObjectCache::Answer ObjectCache::find_name(const FileHandle &directory, std::string_view name) {
    const auto *found = names_.find(key(directory, name), now_());
    return found == nullptr ? Answer{} : Answer{true, *found};
}

void ObjectCache::clear() {
    attributes_.clear();
    names_.clear();
}

// The size byte in front keeps handle and name apart.
const std::string &ObjectCache::key(const FileHandle &directory, std::string_view name) {
    key_.assign(1, static_cast<char>(directory.size));
    key_ += directory.view();
    key_ += name;
    return key_;
}

}  // namespace nfstdm
