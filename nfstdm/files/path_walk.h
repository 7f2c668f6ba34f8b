// SPDX-License-Identifier: Apache-2.0
// From a path to the object it names: component by component, through links, across mounts.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "nfstdm/files/mount_set.h"

namespace nfstdm {

// listed: kept, too, and what a listing told of the last component is enough.
enum class LastLink { follow, keep, listed };

// Where a path leads.
struct Place {
    MountedVolume *mount = nullptr;       // null: the path is on no mount, and nothing else is set
    Components components;                // of the absolute path of this host after every link
    std::optional<FileHandle> directory;  // that holds the name; nothing for the root of a mount
    std::string name;
    std::optional<FoundObject> object;   // nothing when the directory has no such name
    std::optional<ListedObject> listed;  // instead of the object

    std::string path() const { return join_path(components); }
};

// Where a path leads, if all of it is known without a question and there is no link on the way. Not the root of a
// mount.
std::optional<Place> known_place(const MountSet &mounts, std::string_view path);

// What is wrong with a place on a mount that has no object.
Status absence(const Place &place);

// Follows at most 40 links (ELOOP). A path that is on no mount is local; a link that leads from a mount to a path on no
// mount is an error (EXDEV), because the caller's own calls know nothing of the link.
Result<Place> walk_path(const MountSet &mounts, std::string_view path, LastLink last);

}  // namespace nfstdm
