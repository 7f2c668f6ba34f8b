// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/listed_objects.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace nfstdm {
namespace {

constexpr unsigned kTypeShift = 16;  // above the bits of the mode
constexpr uint64_t kModeMask = (uint64_t{1} << kTypeShift) - 1;

// Hashes have nothing in common.
struct ObjectHead {
    uint64_t tag = 0;
    uint64_t handle_digest = 0;
};

ObjectHead object_head_at(const std::string &part, std::size_t at) {
    ObjectHead head;
    std::memcpy(&head, part.data() + at, sizeof head);
    return head;
}

}  // namespace

void ListedObjects::put(std::size_t part, uint64_t tag, const ListedObject &object) {
    const auto file_system = is_full() ? std::nullopt : number_of_file_system(object.attributes.fsid);
    if (!file_system) return;
    if (parts_.size() <= part) begin_part(part);
    std::string &bytes = parts_.back();
    const std::size_t before = bytes.size();
    const ObjectHead head{tag, object.handle_digest};
    bytes.append(reinterpret_cast<const char *>(&head), sizeof head);
    const Fields fields = fields_of(object.attributes, *file_system);
    append_differences(bytes, latest_, fields);
    latest_ = fields;
    bytes_ += bytes.size() - before;
}

// Each can be read by itself.
void ListedObjects::begin_part(std::size_t number) {
    if (!parts_.empty()) parts_.back().shrink_to_fit();
    parts_.resize(number + 1);
    latest_ = {};
}

std::optional<uint64_t> ListedObjects::number_of_file_system(uint64_t fsid) {
    const auto known = std::ranges::find(file_systems_, fsid);
    if (known != file_systems_.end()) return static_cast<uint64_t>(known - file_systems_.begin());
    if (file_systems_.size() == kFileSystemsMaximum) return std::nullopt;
    file_systems_.push_back(fsid);
    return file_systems_.size() - 1;
}

// The times of one file are often the same, or nearly. What changes most often comes first: the mask then takes one
// byte for many.
ListedObjects::Fields ListedObjects::fields_of(const Attributes &attributes, uint64_t file_system) {
    const auto &access = attributes.access;
    const auto &modification = attributes.modification;
    const auto &change = attributes.change;
    return {attributes.fileid,
            attributes.size,
            attributes.used,
            change.seconds,
            change.nanoseconds,
            modification.seconds - change.seconds,
            uint64_t{modification.nanoseconds} - change.nanoseconds,
            access.seconds - modification.seconds,
            uint64_t{access.nanoseconds} - modification.nanoseconds,
            static_cast<uint64_t>(attributes.type) << kTypeShift | (attributes.mode & kModeMask),
            attributes.links,
            attributes.uid,
            attributes.gid,
            file_system};
}

Attributes ListedObjects::attributes_of(const Fields &fields) const {
    const auto &[fileid, size, used, change, change_part, modification, modification_part, access, access_part,
                 type_and_mode, links, uid, gid, file_system] = fields;
    const auto narrow = [](uint64_t number) { return static_cast<uint32_t>(number); };
    Attributes attributes;
    attributes.type = static_cast<FileType>(type_and_mode >> kTypeShift);
    attributes.mode = narrow(type_and_mode & kModeMask);
    attributes.links = narrow(links);
    attributes.uid = narrow(uid);
    attributes.gid = narrow(gid);
    attributes.size = size;
    attributes.used = used;
    attributes.fsid = file_systems_[file_system];
    attributes.fileid = fileid;
    attributes.change = {change, narrow(change_part)};
    attributes.modification = {change + modification, narrow(change_part + modification_part)};
    attributes.access = {attributes.modification.seconds + access,
                         narrow(change_part + modification_part + access_part)};
    return attributes;
}

// Goes on to the next part at the end of one.
bool ListedObjects::next_is(uint64_t tag) {
    while (next_.part < parts_.size() && next_.at == parts_[next_.part].size())
        next_ = {next_.part + 1, 0, {}};
    return next_.part < parts_.size() && object_head_at(parts_[next_.part], next_.at).tag == tag;
}

ListedObject ListedObjects::read_next() {
    const std::string &part = parts_[next_.part];
    const ObjectHead head = object_head_at(part, next_.at);
    std::string_view rest = std::string_view(part).substr(next_.at + sizeof head);
    take_differences(rest, next_.before);
    next_.at = part.size() - rest.size();
    return {attributes_of(next_.before), head.handle_digest};
}

std::optional<ListedObject> ListedObjects::find_in(std::size_t part, uint64_t tag) {
    if (part >= parts_.size()) return std::nullopt;
    const Position before = next_;
    next_ = {part, 0, {}};
    while (next_.at < parts_[part].size()) {
        if (object_head_at(parts_[part], next_.at).tag == tag) return read_next();
        read_next();
    }
    next_ = before;
    return std::nullopt;
}

void ListedObjects::cut(std::size_t part) {
    if (part >= parts_.size()) return;
    parts_.resize(part);
    bytes_ = 0;
    for (const Part &each : parts_)
        bytes_ += each.size();
    // What is put next may still belong to the last part.
    next_ = {part == 0 ? 0 : part - 1, 0, {}};
    while (part != 0 && next_.at < parts_.back().size())
        read_next();
    latest_ = std::exchange(next_, {}).before;
}

void ListedObjects::release() {
    limit_ = 0;
    parts_ = {};
    bytes_ = 0;
    next_ = {};
}

}  // namespace nfstdm
