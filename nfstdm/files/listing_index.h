// SPDX-License-Identifier: Apache-2.0
// What is kept of a directory's listing however long it is: where its parts begin, and of each name a fingerprint of 80
// bits and its part. That is enough to know a name that comes twice, to go on from any entry, and to ask again for the
// part that a name came with. The names themselves are held by whoever lists. What the listing told of the objects is
// kept beside them for who asks for that.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "nfstdm/base/keyed_hash.h"
#include "nfstdm/files/listed_objects.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

// Where a directory is read on from.
struct DirectoryPosition {
    uint64_t cookie = 0;
    uint64_t verifier = 0;
};

class ListingIndex {
  public:
    // A part is a stretch of what one reply brought, or several small ones.
    struct Part {
        uint64_t cookie = 0;  // that it is asked for with
        uint64_t verifier = 0;
        uint64_t first = 0;       // the position of its first entry
        uint64_t name_bytes = 0;  // of the parts before
    };
    static constexpr std::size_t kPartMinimum = 64;    // entries, but for the last one
    static constexpr std::size_t kPartMaximum = 1000;  // about as many as come with their attributes in one reply

    // object_bytes: the memory for what the listing tells of the objects.
    explicit ListingIndex(const FileHandle &directory, std::size_t object_bytes = 0,
                          const HashKey &key = process_hash_key())
        : directory_(directory), key_(key), objects_(object_bytes) {}

    const FileHandle &directory() const { return directory_; }

    // What is added from now on came from here, unless the part before is still too small to stand by itself.
    void go_on(const Part &part);
    // False when the listing has the name already.
    bool add(std::string_view name);
    // What the listing told of the name that was added last.
    void tell(const ListedObject &object) { objects_.put(parts_.size() - 1, latest_tag_, object); }
    std::optional<ListedObject> told(std::string_view name);
    ListedObjects &objects() { return objects_; }
    const ListedObjects &objects() const { return objects_; }

    // The number of the part that a name came with; nothing when the listing has no such name.
    std::optional<std::size_t> part_of(std::string_view name) const;
    // The number of the part that a position is in; there is one.
    std::size_t part_at(uint64_t position) const;
    std::size_t parts() const { return parts_.size(); }
    const Part &part(std::size_t number) const { return parts_[number]; }

    // Forgets a part and all behind it.
    void cut(std::size_t part);

    std::size_t names() const { return names_; }
    std::size_t bytes() const;  // of memory, without the objects

  private:
    // 76 bits of the name's hash, four more in the choice of the table; the last 20 bits are the part's number and one.
    struct Slot {
        uint32_t place = 0;
        uint32_t middle = 0;
        uint32_t rest = 0;

        bool is_free() const { return part() == 0; }
        uint32_t part() const { return rest & kPartMask; }
        bool same_name(const Slot &other) const {
            return place == other.place && middle == other.middle && (rest | kPartMask) == (other.rest | kPartMask);
        }
    };
    // Several, so that while one grows only little is there twice.
    struct Table {
        std::vector<Slot> slots;
        std::size_t used = 0;
    };
    static constexpr uint32_t kPartMask = (1U << 20) - 1;
    static constexpr std::size_t kTables = 16;

    static Slot slot_of(const Hash128 &hash);
    std::optional<std::size_t> part_of(const Hash128 &hash) const;
    static std::size_t find(const std::vector<Slot> &slots, const Slot &wanted);
    static void refill(Table &table, std::size_t size);

    const FileHandle directory_;
    const HashKey key_;
    std::vector<Part> parts_;
    std::array<Table, kTables> tables_;
    std::size_t names_ = 0;
    std::size_t names_before_part_ = 0;  // the latest
    ListedObjects objects_;
    uint64_t latest_tag_ = 0;
};

}  // namespace nfstdm
