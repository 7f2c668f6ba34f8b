// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/open_files.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "nfstdm/files/stale_retry.h"
#include "nfstdm/volume/sizes.h"

namespace nfstdm {

OpenFiles::OpenFiles(MountSet &mounts, uint32_t create_mode, uint64_t first_identifier)
    : mounts_(mounts),
      create_mode_(create_mode),
      early_(mounts, resources_.read_pool),
      next_identifier_(first_identifier) {
    resources_.look_up_again = [this](const std::string &path) {
        mounts_.forget_handles();
        return walk_path(mounts_, path, LastLink::keep);
    };
}

Result<std::optional<OpenedFile>> OpenFiles::identify(std::string_view path) {
    return retry_when_stale(mounts_, [&]() -> Result<std::optional<OpenedFile>> {
        auto place = walk_path(mounts_, path, LastLink::follow);
        if (!place.ok()) return place.status();
        if (place.value().mount == nullptr) return std::optional<OpenedFile>{};
        if (!place.value().object) return absence(place.value()).in(std::string(path));
        return open(place.value());
    });
}

Result<std::optional<OpenedFile>> OpenFiles::create(std::string_view path, std::span<const std::byte> content) {
    return retry_when_stale(mounts_, [&]() -> Result<std::optional<OpenedFile>> {
        auto place = walk_path(mounts_, path, LastLink::follow);
        if (!place.ok()) return place.status();
        if (place.value().mount == nullptr) return std::optional<OpenedFile>{};
        auto made = create_at(place.value(), content);
        if (!made.ok()) return made.status().in(std::string(path));
        auto opened = open(place.value());
        if (opened.ok()) find(opened.value()->identifier)->begin_with(std::move(made.value()), content);
        return opened;
    });
}

// An existing file is emptied, so that none of its old bytes show through, and keeps its permissions: also one that
// somebody made since the name was looked up.
Result<MadeFile> OpenFiles::create_at(Place &place, std::span<const std::byte> content) {
    if (!place.directory) return Status{EISDIR, "is a mount point"};
    if (place.object && place.object->attributes.type != FileType::regular)
        return Status{place.object->attributes.type == FileType::directory ? uint32_t{EISDIR} : uint32_t{EINVAL},
                      "is no regular file"};
    const auto open = place.object ? find_open(place) : files_.end();
    if (open != files_.end()) {
        OpenFile &file = open->second.file;
        file.finish_reads();
        if (Status failure = file.flush(); !failure.ok()) return failure;
        file.forget_read_ahead();
    }
    SetAttributes set;
    if (place.object)
        set.size = 0;
    else
        set.mode = create_mode_;
    if (place.object) content = {};
    auto made = place.mount->create(*place.directory, place.name, set, content);
    if (!made.ok()) return made.status();
    place.object = made.value().object;
    if (place.object->attributes.size == (made.value().has_content ? content.size() : 0)) return made;
    made.value().has_content = false;
    SetAttributes empty;
    empty.size = 0;
    if (Status failure = place.mount->set_attributes(place.object->handle, empty); !failure.ok()) return failure;
    place.object->attributes.size = 0;
    return made;
}

Result<std::optional<OpenedFile>> OpenFiles::open(const Place &place) {
    const auto &attributes = place.object->attributes;
    if (attributes.type == FileType::directory) return Status{EISDIR, place.path() + ": is a directory"};
    if (attributes.type != FileType::regular) return Status{EINVAL, place.path() + ": is no regular file"};
    const auto open = find_open(place);
    if (open == files_.end()) return std::optional(OpenedFile{add(place)->first, attributes.size, place.path()});
    const auto size = reopen(open->second, place);
    if (!size.ok()) return size.status();
    return std::optional(OpenedFile{open->first, size.value(), place.path()});
}

OpenFiles::Files::iterator OpenFiles::add(const Place &place) {
    const auto added = files_.try_emplace(next_identifier_, place, resources_).first;
    identifiers_.emplace(FileHandleHash()(place.object->handle), next_identifier_++);
    if (const auto early = early_.take(place)) added->second.file.begin_with(early);
    return added;
}

// The size that the server told lags behind what was accepted for the file since it was opened first.
Result<uint64_t> OpenFiles::reopen(Entry &entry, const Place &place) {
    auto &file = entry.file;
    uint64_t size = place.object->attributes.size;
    if (file.dirty()) {
        if (const Status &failure = file.settle(); !failure.ok()) return file.named(failure);
        place.mount->cache().forget_attributes(file.handle());
        const auto now = place.mount->attributes(file.handle());
        if (!now.ok()) return now.status();
        size = now.value().size;
    }
    file.set_known_size(size);
    ++entry.opened;
    return size;
}

OpenFiles::Files::iterator OpenFiles::find_open(const Place &place) {
    const auto [first, last] = identifiers_.equal_range(FileHandleHash()(place.object->handle));
    for (auto known = first; known != last; ++known) {
        const auto found = files_.find(known->second);
        const OpenFile &file = found->second.file;
        if (&file.mount() == place.mount && file.handle() == place.object->handle) return found;
    }
    return files_.end();
}

OpenFile *OpenFiles::find(uint64_t identifier) {
    const auto found = files_.find(identifier);
    return found == files_.end() ? nullptr : &found->second.file;
}

Status OpenFiles::close(uint64_t identifier) {
    const auto found = files_.find(identifier);
    if (found == files_.end()) return {EBADF, "no such open file"};
    OpenFile &file = found->second.file;
    file.finish_reads();
    Status failure = file.flush();
    if (--found->second.opened > 0) return failure;
    const auto [first, last] = identifiers_.equal_range(FileHandleHash()(file.handle()));
    const auto known = std::find_if(first, last, [&](const auto &each) { return each.second == identifier; });
    if (known != last) identifiers_.erase(known);
    files_.erase(found);
    return failure;
}

void OpenFiles::rest(const Place &place) {
    const auto open = place.object ? find_open(place) : files_.end();
    if (open == files_.end()) return;
    open->second.file.finish_reads();
    open->second.file.rest();
}

Status OpenFiles::flush_all() {
    Status first;
    while (!resources_.unwritten.empty()) {
        Status failure = resources_.unwritten.front()->flush();
        if (first.ok()) first = std::move(failure);
    }
    return first;
}

void OpenFiles::make_room_to_read(const OpenFile &file) {
    if (file.reads_ahead() || resources_.read_pool.has_room(kTransferMaximum)) return;
    for (auto &[identifier, entry] : files_)
        if (&entry.file != &file) entry.file.forget_read_ahead();
}

}  // namespace nfstdm
