// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/listed_objects.h"

#include <algorithm>

namespace nfstdm {
namespace {

constexpr unsigned kTypeShift = 16;  // above the bits of the mode
constexpr uint32_t kModeMask = (uint32_t{1} << kTypeShift) - 1;

}  // namespace

void ListedObjects::put(std::size_t part, uint64_t tag, const ListedObject &object) {
    if (starts_.size() <= part) starts_.resize(part + 1, size_);
    const auto &[attributes, handle_digest] = object;
    const auto file_system = number_of_file_system(attributes.fsid);
    if (is_full() || !file_system) return;
    if (size_ % kPieceObjects == 0) {
        pieces_.emplace_back();
        if (size_ != 0) pieces_.back().reserve(kPieceObjects);  // most directories are small
    }
    pieces_.back().push_back({tag, handle_digest, attributes.size, attributes.used, attributes.fileid,
                              attributes.access.seconds, attributes.modification.seconds, attributes.change.seconds,
                              attributes.access.nanoseconds, attributes.modification.nanoseconds,
                              attributes.change.nanoseconds,
                              static_cast<uint32_t>(attributes.type) << kTypeShift | (attributes.mode & kModeMask),
                              attributes.links, attributes.uid, attributes.gid, *file_system});
    ++size_;
}

std::optional<uint32_t> ListedObjects::number_of_file_system(uint64_t fsid) {
    const auto known = std::ranges::find(file_systems_, fsid);
    if (known != file_systems_.end()) return static_cast<uint32_t>(known - file_systems_.begin());
    if (file_systems_.size() == kFileSystemsMaximum) return std::nullopt;
    file_systems_.push_back(fsid);
    return static_cast<uint32_t>(file_systems_.size() - 1);
}

ListedObject ListedObjects::unpacked(std::size_t number) const {
    const Packed &packed = at(number);
    ListedObject object;
    object.handle_digest = packed.handle_digest;
    Attributes &attributes = object.attributes;
    attributes.type = static_cast<FileType>(packed.type_and_mode >> kTypeShift);
    attributes.mode = packed.type_and_mode & kModeMask;
    attributes.links = packed.links;
    attributes.uid = packed.uid;
    attributes.gid = packed.gid;
    attributes.size = packed.size;
    attributes.used = packed.used;
    attributes.fsid = file_systems_[packed.file_system];
    attributes.fileid = packed.fileid;
    attributes.access = {packed.access, packed.access_part};
    attributes.modification = {packed.modification, packed.modification_part};
    attributes.change = {packed.change, packed.change_part};
    return object;
}

std::optional<ListedObject> ListedObjects::find_in(std::size_t part, uint64_t tag) {
    if (part >= starts_.size()) return std::nullopt;
    const std::size_t end = part + 1 < starts_.size() ? starts_[part + 1] : size_;
    for (std::size_t number = starts_[part]; number < end; ++number) {
        if (at(number).tag != tag) continue;
        next_ = number + 1;
        return unpacked(number);
    }
    return std::nullopt;
}

void ListedObjects::cut(std::size_t part) {
    if (part >= starts_.size()) return;
    size_ = starts_[part];
    starts_.resize(part);
    pieces_.resize((size_ + kPieceObjects - 1) / kPieceObjects);
    if (!pieces_.empty()) pieces_.back().resize(size_ - (pieces_.size() - 1) * kPieceObjects);
    next_ = std::min(next_, size_);
}

void ListedObjects::release() {
    limit_ = 0;
    cut(0);
    pieces_ = {};
}

}  // namespace nfstdm
