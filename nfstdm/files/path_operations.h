// SPDX-License-Identifier: Apache-2.0
// The operations that name their object by a path.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "nfstdm/files/directory_stream.h"
#include "nfstdm/files/mount_set.h"
#include "nfstdm/files/path_walk.h"

namespace nfstdm {

enum class Location { remote, local };

// By what a server knows an object.
struct ObjectName {
    unsigned server = 0;         // the line of its block in tslnfstab
    uint64_t handle_digest = 0;  // as digest_of() gives it
};

class PathOperations {
  public:
    // directory_mode: permission bits of directories made here. The mounts must outlive the object.
    PathOperations(MountSet &mounts, uint32_t directory_mode) : mounts_(mounts), directory_mode_(directory_mode) {}

    // Each says where the path lies; of a local one nothing else is touched. Only set_permissions, list and fsinfo
    // follow a link that the path ends in.
    // name: filled, too, when it is given. Of an entry of an expected listing it tells what the listing told.
    Result<Location> get_attributes(std::string_view path, Attributes &attributes, ObjectName *name = nullptr);
    Result<Location> set_permissions(std::string_view path, uint32_t mode);
    Result<Location> make_directory(std::string_view path);
    Result<Location> remove_directory(std::string_view path);
    // before runs when the path is found to be remote; its failure keeps the file.
    Result<Location> remove(std::string_view path, const std::function<Status(const Place &)> &before);
    Result<Location> read_link(std::string_view path, std::string &target);
    // In the replies the attributes are always there.
    Result<Location> fsinfo(std::string_view path, FsInfoReply &info);
    Result<Location> fsstat(std::string_view path, FsStatReply &stat);
    // The batch is valid until the next listing. Position 0 begins a listing anew.
    Result<Location> list(std::string_view path, uint64_t position, std::size_t most, DirectoryStream::Batch &batch);

    // The listing that begins next of this path is going to be followed by get_attributes() of most of its entries.
    void expect_attributes(std::string_view path) { expected_ = path; }

    // The path is going to be used: the contact with its server begins, without waiting for it.
    void expect_use(std::string_view path);
    // Begins what remove() is to end, of a file of which enough is known without a question, unless it is in use. Tells
    // whether it did.
    bool expect_removal(std::string_view path, const std::function<bool(const Place &)> &is_in_use);

    // Names of the present listing that were refused as unsafe.
    std::size_t names_refused() const { return stream_ ? stream_->names_refused() : 0; }

  private:
    using Operation = std::function<Status(const Place &)>;
    Result<Location> at(std::string_view path, LastLink last, const Operation &operation);
    Result<Location> at_object(std::string_view path, LastLink last, const Operation &operation);
    Result<Location> at_name(std::string_view path, const Operation &operation);
    struct Stretch {
        uint64_t position = 0;
        std::size_t most = 0;
        std::size_t object_bytes = 0;  // for a listing that begins
    };
    Status list_at(const Place &place, const Stretch &wanted, DirectoryStream::Batch &batch);

    MountSet &mounts_;
    const uint32_t directory_mode_;
    std::unique_ptr<DirectoryStream> stream_;  // the latest listing
    std::string expected_;                     // that a listing is to begin of
};

}  // namespace nfstdm
