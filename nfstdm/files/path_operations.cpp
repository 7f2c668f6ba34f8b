// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/path_operations.h"

#include <cerrno>
#include <utility>

#include "nfstdm/files/stale_retry.h"

namespace nfstdm {
namespace {

// The attributes that came with a reply, or else those of the object, for a server need not send any.
Status fill_attributes(const Place &place, std::optional<Attributes> &attributes) {
    if (attributes) return {};
    auto known = place.mount->attributes(place.object->handle);
    if (known.ok()) attributes = known.value();
    return known.status();
}

}  // namespace

Result<Location> PathOperations::at(std::string_view path, LastLink last, const Operation &operation) {
    return retry_when_stale(mounts_, [&]() -> Result<Location> {
        auto place = walk_path(mounts_, path, last);
        if (!place.ok()) return place.status();
        if (place.value().mount == nullptr) return Location::local;
        if (Status failure = operation(place.value()); !failure.ok()) return failure.in(std::string(path));
        return Location::remote;
    });
}

// For operations on an object that must be there.
Result<Location> PathOperations::at_object(std::string_view path, LastLink last, const Operation &operation) {
    return at(path, last, [&operation](const Place &place) -> Status {
        if (!place.object) return absence(place);
        return operation(place);
    });
}

// For operations on a name in a directory, which the root of a mount has not.
Result<Location> PathOperations::at_name(std::string_view path, const Operation &operation) {
    return at(path, LastLink::keep, [&operation](const Place &place) -> Status {
        if (!place.directory) return {EBUSY, "is a mount point"};
        return operation(place);
    });
}

Result<Location> PathOperations::get_attributes(std::string_view path, Attributes &attributes, ObjectName *name) {
    return at(path, LastLink::listed, [&attributes, name](const Place &place) -> Status {
        if (!place.listed && !place.object) return absence(place);
        attributes = place.listed ? place.listed->attributes : place.object->attributes;
        if (name == nullptr) return {};
        const uint64_t digest = place.listed ? place.listed->handle_digest : digest_of(place.object->handle);
        *name = {place.mount->server_line(), digest};
        return {};
    });
}

Result<Location> PathOperations::set_permissions(std::string_view path, uint32_t mode) {
    return at_object(path, LastLink::follow, [mode](const Place &place) {
        SetAttributes set;
        set.mode = mode;
        return place.mount->set_attributes(place.object->handle, set);
    });
}

Result<Location> PathOperations::make_directory(std::string_view path) {
    return at(path, LastLink::keep, [this](const Place &place) -> Status {
        if (!place.directory) return {EEXIST, "is a mount point"};
        return place.mount->make_directory(*place.directory, place.name, directory_mode_, place.object);
    });
}

Result<Location> PathOperations::remove_directory(std::string_view path) {
    return at_name(path,
                   [](const Place &place) { return place.mount->remove_directory(*place.directory, place.name); });
}

Result<Location> PathOperations::remove(std::string_view path, const std::function<Status(const Place &)> &before) {
    std::optional<Status> prepared;  // once, also when a stale handle makes the rest happen twice
    return at_name(path, [&](const Place &place) {
        if (!prepared) prepared = before(place);
        if (!prepared->ok()) return *prepared;
        if (place.object) place.mount->cache().forget_attributes(place.object->handle);
        return place.mount->remove(*place.directory, place.name);
    });
}

Result<Location> PathOperations::read_link(std::string_view path, std::string &target) {
    return at_object(path, LastLink::keep, [&target](const Place &place) -> Status {
        if (place.object->attributes.type != FileType::link) return {EINVAL, "is no link"};
        auto reply = place.mount->read_link(place.object->handle);
        if (reply.ok()) target = std::move(reply.value());
        return reply.status();
    });
}

Result<Location> PathOperations::fsinfo(std::string_view path, FsInfoReply &info) {
    return at_object(path, LastLink::follow, [&info](const Place &place) {
        auto reply = place.mount->fsinfo(*place.object);
        if (reply.ok()) info = reply.value();
        return reply.status();
    });
}

Result<Location> PathOperations::fsstat(std::string_view path, FsStatReply &stat) {
    return at_object(path, LastLink::keep, [&stat](const Place &place) {
        auto reply = place.mount->fsstat(place.object->handle);
        if (!reply.ok()) return reply.status();
        stat = reply.value();
        return fill_attributes(place, stat.attributes);
    });
}

Result<Location> PathOperations::list(std::string_view path, uint64_t position, std::size_t most,
                                      DirectoryStream::Batch &batch) {
    const bool is_expected = position == 0 && path == expected_;
    if (is_expected) expected_.clear();
    return at_object(path, LastLink::follow, [&](const Place &place) {
        return list_at(place, {position, most, is_expected ? ListedObjects::kBytesMaximum : 0}, batch);
    });
}

void PathOperations::expect_use(std::string_view path) {
    if (!path_is_absolute(path)) return;
    Components components = split_path(path);
    collapse_parents(components);
    const auto [mount, depth] = mounts_.find(components);
    if (mount != nullptr) mount->begin_contact(std::span(components).subspan(depth));
}

bool PathOperations::expect_removal(std::string_view path, const std::function<bool(const Place &)> &is_in_use) {
    const auto place = known_place(mounts_, path);
    if (!place || place->object->attributes.type == FileType::directory || is_in_use(*place)) return false;
    return place->mount->begin_removal(*place->directory, place->name, *place->object);
}

Status PathOperations::list_at(const Place &place, const Stretch &wanted, DirectoryStream::Batch &batch) {
    if (place.object->attributes.type != FileType::directory) return {ENOTDIR, "is no directory"};
    const bool goes_on = stream_ && &stream_->mount() == place.mount && stream_->directory() == place.object->handle;
    if (wanted.position == 0 || !goes_on)
        stream_ = std::make_unique<DirectoryStream>(*place.mount, *place.object, wanted.object_bytes);
    auto reply = stream_->batch(wanted.position, wanted.most);
    if (reply.ok()) batch = reply.value();
    return reply.status();
}

}  // namespace nfstdm
