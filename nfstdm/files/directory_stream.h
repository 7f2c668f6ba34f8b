// SPDX-License-Identifier: Apache-2.0
// One directory as it is being listed.
//
// An entry's position is its number. The entries from the latest batch on are kept as they were read, so the listing
// can go on from any of them although servers' cookies need neither grow nor stay valid (RFC 1813 section 3.3.16); an
// earlier one is read again from where its part began. Of all of them a fingerprint is kept, so no name comes twice.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/files/listing_index.h"
#include "nfstdm/files/mounted_volume.h"

namespace nfstdm {

// A name that may be given to the caller and used in a path: not empty, no "/" and no NUL in it, neither "." nor "..",
// and short enough for a directory entry.
bool is_safe_name(std::string_view name);

class DirectoryStream {
  public:
    // Of a directory; one that has more is taken for endless. The bytes are those that whoever holds the names needs
    // for them; what is kept here is bounded by the number.
    static constexpr std::size_t kEntriesMaximum = std::size_t{1} << 24;
    static constexpr std::size_t kBytesMaximum = std::size_t{256} << 20;
    static constexpr std::size_t kNameHead = 2;  // that a name takes beside its own
    static_assert(std::size_t{10'000'000} * (24 + kNameHead) <= kBytesMaximum, "there are directories so large");

    struct Entry {
        uint64_t fileid = 0;
        FileType type = FileType::none;  // none when the server did not tell
        std::string_view name;
    };
    // Valid until the next call.
    struct Batch {
        std::span<const Entry> entries;
        bool at_end = false;  // no entry follows these
    };

    // The mount must outlive the object. object_bytes: the memory in which what the entries' attributes are is kept for
    // MountedVolume::listed().
    DirectoryStream(MountedVolume &mount, const FoundObject &directory, std::size_t object_bytes = 0);

    const MountedVolume &mount() const { return mount_; }
    const FileHandle &directory() const { return index_->directory(); }
    std::size_t names_refused() const { return names_refused_; }

    // At most `most` entries from a position on (0 = the start): "." and ".." first, then the names in the server's
    // order. As many as asked for unless the directory ends.
    Result<Batch> batch(uint64_t position, std::size_t most);

  private:
    // What one reply brought.
    struct Block {
        uint64_t first = 0;  // position
        std::string names;
        std::vector<Entry> entries;

        uint64_t end() const { return first + entries.size(); }
    };

    Block dots() const;
    void go_back(uint64_t position);
    void drop_before(uint64_t position);
    Batch gather(uint64_t position, std::size_t most);
    void ask();
    Status read_more();
    Status start_again(const Status &failure);
    Status move_behind(const DirectoryReply &reply);
    Status notice_loop();
    Status endless() const;
    void take_entries(DirectoryPosition from, const DirectoryReply &reply);
    bool take_name(const DirectoryEntry &entry);

    MountedVolume &mount_;
    const std::shared_ptr<ListingIndex> index_;
    uint64_t own_fileid_ = 0;
    uint64_t parent_fileid_ = 0;
    std::deque<Block> blocks_;  // from the latest batch on
    std::vector<Entry> batch_;
    uint64_t next_ = 0;                  // the position after all that was read
    DirectoryQuestionPointer question_;  // what follows, asked for ahead
    uint64_t cookie_ = 0;
    uint64_t verifier_ = 0;
    // A cookie from before, to find out that the server leads in a circle: each is kept for twice as many replies as
    // the one before (Brent's algorithm).
    uint64_t cookie_before_ = 0;
    std::size_t replies_since_ = 0;
    std::size_t replies_until_next_ = 1;
    std::size_t entries_read_ = 0;
    std::size_t bytes_ = 0;  // that the names take
    std::size_t names_refused_ = 0;
    unsigned restarts_ = 0;
    bool begun_ = false;  // a reply came
    bool at_end_ = false;
};

}  // namespace nfstdm
