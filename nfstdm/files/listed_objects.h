// SPDX-License-Identifier: Apache-2.0
// What a listing told of the objects in a directory, for a caller that is going to ask about most of them: packed, in
// the order of the listing, within a bound of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "nfstdm/volume/volume.h"

namespace nfstdm {

struct ListedObject {
    Attributes attributes;
    uint64_t handle_digest = 0;  // as digest_of() gives it
};

class ListedObjects {
  public:
    static constexpr std::size_t kBytesMaximum = std::size_t{96} << 20;  // a million objects

    // limit: bytes of memory; with 0 nothing is held.
    explicit ListedObjects(std::size_t limit) : limit_(limit) {}

    // tag: of the object's name; no two names in a part have the same. Parts come in order. What does not fit any more
    // is left out.
    void put(std::size_t part, uint64_t tag, const ListedObject &object);
    // Cheap for whoever asks in the order of the listing; part() is called for the others only, and gives the number of
    // the part that the name came with, if there is one.
    template <class Part>
    std::optional<ListedObject> find(uint64_t tag, Part &&part) {
        if (next_ < size_ && at(next_).tag == tag) return unpacked(next_++);
        if (size_ == 0) return std::nullopt;
        const std::optional<std::size_t> number = part();
        return number ? find_in(*number, tag) : std::nullopt;
    }

    // Forgets a part and all behind it.
    void cut(std::size_t part);
    // Gives the memory back, and holds nothing any more.
    void release();

    bool is_full() const { return bytes() >= limit_; }
    std::size_t bytes() const { return size_ * sizeof(Packed); }

  private:
    struct Packed {
        uint64_t tag;
        uint64_t handle_digest;
        uint64_t size;
        uint64_t used;
        uint64_t fileid;
        uint64_t access, modification, change;  // seconds
        uint32_t access_part, modification_part, change_part;
        uint32_t type_and_mode;
        uint32_t links, uid, gid;
        uint32_t file_system;  // its number
    };
    using Piece = std::vector<Packed>;
    static constexpr std::size_t kPieceObjects = 1024;
    static constexpr std::size_t kFileSystemsMaximum = 64;

    std::optional<uint32_t> number_of_file_system(uint64_t fsid);
    const Packed &at(std::size_t number) const { return pieces_[number / kPieceObjects][number % kPieceObjects]; }
    ListedObject unpacked(std::size_t number) const;
    std::optional<ListedObject> find_in(std::size_t part, uint64_t tag);

    std::size_t limit_;
    std::vector<Piece> pieces_;
    std::size_t size_ = 0;                // objects
    std::size_t next_ = 0;                // behind the one that was asked about last
    std::vector<std::size_t> starts_;     // of the parts
    std::vector<uint64_t> file_systems_;  // their fsid: of a directory there is one, or few
};

}  // namespace nfstdm
