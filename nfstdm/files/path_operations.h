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
    unsigned server = 0;  // the line of its block in tslnfstab
    FileHandle handle;
};

class PathOperations {
  public:
    // directory_mode: permission bits of directories made here. The mounts must outlive the object.
    PathOperations(MountSet &mounts, uint32_t directory_mode) : mounts_(mounts), directory_mode_(directory_mode) {}

    // Each says where the path lies; of a local one nothing else is touched. Only set_permissions, list and fsinfo
    // follow a link that the path ends in.
    // name: filled, too, when it is given.
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

    // Names of the present listing that were refused as unsafe.
    std::size_t names_refused() const { return stream_ ? stream_->names_refused() : 0; }

  private:
    using Operation = std::function<Status(const Place &)>;
    Result<Location> at(std::string_view path, LastLink last, const Operation &operation);
    Result<Location> at_object(std::string_view path, LastLink last, const Operation &operation);
    Result<Location> at_name(std::string_view path, const Operation &operation);
    Status list_at(const Place &place, uint64_t position, std::size_t most, DirectoryStream::Batch &batch);

    MountSet &mounts_;
    const uint32_t directory_mode_;
    std::unique_ptr<DirectoryStream> stream_;  // the latest listing
};

}  // namespace nfstdm
