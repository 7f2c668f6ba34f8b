// SPDX-License-Identifier: Apache-2.0
// File handles, and the memory of where the objects they mean were last seen.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

namespace loopnfsd {

// What a handle means: an inode of an export. It stays the same over renames and over restarts of the server. The
// generation is the inode's time of birth, which tells a new file from a deleted one whose inode number it was given;
// it is 0 on a file system that keeps none.
struct FileKey {
    uint32_t export_id = 0;
    uint64_t device = 0;
    uint64_t inode = 0;
    uint64_t generation = 0;

    bool operator==(const FileKey &) const = default;
};

struct FileKeyHash {
    std::size_t operator()(const FileKey &key) const;
};

FileKey key_of(uint32_t export_id, const struct statx &status);

// Bytes of an honest handle: mark, export, device, inode, generation.
constexpr std::size_t kHandleSize = 32;

// A handle of size bytes: filled with zeros beyond kHandleSize, cut off (and thus useless) below it.
std::vector<std::byte> encode_handle(const FileKey &key, std::size_t size = kHandleSize);

// Nothing when the bytes are no handle that encode_handle() made.
std::optional<FileKey> decode_handle(std::span<const std::byte> handle);

// Remembers for each object the directory and the name under which it was seen last. What it says may be out of date:
// who follows it compares the key of what is found.
class NameTable {
  public:
    void remember_root(const FileKey &root);
    void remember(const FileKey &key, const FileKey &parent, std::string_view name);
    void forget(const FileKey &key);

    // The names from the export's root down to the object, none for the root itself; nothing when unknown.
    std::optional<std::vector<std::string>> path_of(const FileKey &key) const;

    // The directory an object was seen in; a root is its own.
    std::optional<FileKey> parent_of(const FileKey &key) const;

  private:
    struct Seat {
        FileKey parent;
        std::string name;  // empty for a root
    };
    std::unordered_map<FileKey, Seat, FileKeyHash> seats_;
};

}  // namespace loopnfsd
