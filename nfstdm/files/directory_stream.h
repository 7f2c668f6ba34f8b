// SPDX-License-Identifier: Apache-2.0
// One directory as it is being listed.
//
// Every entry that was read is kept until the listing is given up, and its position is its number: so the listing can
// go on from any entry, although servers' cookies need neither grow nor stay valid (RFC 1813 section 3.3.16), and no
// name comes twice.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "nfstdm/files/mounted_volume.h"

namespace nfstdm {

// A name that may be given to the caller and used in a path: not empty, no "/" and no NUL in it, neither "." nor "..",
// and short enough for a directory entry.
bool is_safe_name(std::string_view name);

class DirectoryStream {
  public:
    // Of a directory; one that has more is taken for endless.
    static constexpr std::size_t kEntriesMaximum = std::size_t{1} << 22;
    static constexpr std::size_t kBytesMaximum = std::size_t{256} << 20;

    struct Entry {
        uint64_t fileid = 0;
        FileType type = FileType::none;  // none when the server did not tell
        std::string_view name;           // as long as the listing lasts
    };
    // Valid until the next call.
    struct Batch {
        std::span<const Entry> entries;
        bool at_end = false;  // no entry follows these
    };

    // The mount must outlive the object.
    DirectoryStream(MountedVolume &mount, const FoundObject &directory);

    const MountedVolume &mount() const { return mount_; }
    const FileHandle &directory() const { return directory_; }
    std::size_t names_refused() const { return names_refused_; }

    // At most `most` entries from a position on (0 = the start): "." and ".." first, then the names in the server's
    // order. As many as asked for unless the directory ends.
    Result<Batch> batch(uint64_t position, std::size_t most);

  private:
    Status read_more();
    Status start_again(const Status &failure);
    Status move_behind(const DirectoryReply &reply);
    Status endless() const;
    void take_entry(const DirectoryEntry &entry);

    MountedVolume &mount_;
    const FileHandle directory_;
    std::vector<Entry> entries_;
    std::unordered_set<std::string> names_;  // every name once; the entries show them
    std::unordered_set<uint64_t> cookies_used_;
    DirectoryQuestionPointer question_;  // what follows, asked for ahead
    uint64_t cookie_ = 0;
    uint64_t verifier_ = 0;
    std::size_t entries_read_ = 0;
    std::size_t bytes_ = 0;  // that the entries take
    std::size_t names_refused_ = 0;
    unsigned restarts_ = 0;
    bool at_end_ = false;
};

}  // namespace nfstdm
