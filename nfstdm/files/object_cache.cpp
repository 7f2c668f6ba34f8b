// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/object_cache.h"

#include <algorithm>

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
    names_.put(key(directory, name), {handle, ++names_put_}, now_() + lifetime);
}

ObjectCache::Answer ObjectCache::find_name(const FileHandle &directory, std::string_view name) {
    const Name *found = names_.find(key(directory, name), now_());
    if (found == nullptr) return {};
    const uint64_t *forgotten = forgotten_.find(directory, now_());
    return forgotten != nullptr && found->number <= *forgotten ? Answer{} : Answer{true, found->handle};
}

std::optional<ObjectCache::Known> ObjectCache::known(const FileHandle &directory, std::string_view name) {
    const Answer answer = find_name(directory, name);
    if (!answer.handle) return std::nullopt;
    TimePoint name_until;
    TimePoint attributes_until;
    names_.find(key(directory, name), now_(), &name_until);
    const Attributes *attributes = attributes_.find(*answer.handle, now_(), &attributes_until);
    if (attributes == nullptr) return std::nullopt;
    return Known{*answer.handle, *attributes, std::min(name_until, attributes_until)};
}

void ObjectCache::put_known(const FileHandle &directory, std::string_view name, const Known &known) {
    TimePoint until;
    const bool knows_name = find_name(directory, name).known;
    if (knows_name) names_.find(key(directory, name), now_(), &until);
    if (!knows_name || until < known.until) names_.put(key(directory, name), {known.handle, ++names_put_}, known.until);
    const bool knows_attributes = attributes_.find(known.handle, now_(), &until) != nullptr;
    if (!knows_attributes || until < known.until) attributes_.put(known.handle, known.attributes, known.until);
}

// The names stay where they are, for their keys are not sorted by directory. What is put from now on counts, and by the
// time that this is forgotten itself, all from before has expired.
void ObjectCache::forget_names(const FileHandle &directory) {
    ++changes_;
    forgotten_.put(directory, names_put_, now_() + kLifetime);
}

void ObjectCache::clear() {
    ++changes_;
    attributes_.clear();
    names_.clear();
    forgotten_.clear();
}

const std::string &ObjectCache::key(const FileHandle &directory, std::string_view name) {
    set_name_key(key_, directory, name);
    return key_;
}

// The size byte in front keeps handle and name apart.
void set_name_key(std::string &key, const FileHandle &directory, std::string_view name) {
    key.assign(1, static_cast<char>(directory.size));
    key += directory.view();
    key += name;
}

}  // namespace nfstdm
