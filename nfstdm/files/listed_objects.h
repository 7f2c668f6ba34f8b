// SPDX-License-Identifier: Apache-2.0
// What a listing told of the objects in a directory, for a caller that is going to ask about most of them: in the order
// of the listing, each as what sets it apart from the one before, within a bound of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "nfstdm/base/differences.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

struct ListedObject {
    Attributes attributes;
    uint64_t handle_digest = 0;  // as digest_of() gives it
};

class ListedObjects {
  public:
    static constexpr std::size_t kBytesMaximum = std::size_t{48} << 20;  // of a million objects at least

    // limit: bytes of memory; with 0 nothing is held.
    explicit ListedObjects(std::size_t limit) : limit_(limit) {}

    // tag: of the object's name; no two names in a part have the same. Parts come in order. What does not fit any more
    // is left out.
    void put(std::size_t part, uint64_t tag, const ListedObject &object);
    // Cheap for whoever asks in the order of the listing; part() is called for the others only, and gives the number of
    // the part that the name came with, if there is one.
    template <class Part>
    std::optional<ListedObject> find(uint64_t tag, Part &&part) {
        if (parts_.empty()) return std::nullopt;
        if (next_is(tag)) return read_next();
        const std::optional<std::size_t> number = part();
        return number ? find_in(*number, tag) : std::nullopt;
    }

    // Forgets a part and all behind it.
    void cut(std::size_t part);
    // Gives the memory back, and holds nothing any more.
    void release();

    bool is_full() const { return bytes() >= limit_; }
    std::size_t bytes() const { return bytes_ + parts_.size() * sizeof(Part); }

  private:
    // Objects one behind the other: the tag, the digest, and what sets the attributes apart from those before.
    using Part = std::string;
    static constexpr std::size_t kFields = 14;
    using Fields = Numbers<kFields>;
    static constexpr std::size_t kFileSystemsMaximum = 64;

    // Where reading goes on: in which part, behind how many of its bytes, and what was read there last.
    struct Position {
        std::size_t part = 0;
        std::size_t at = 0;
        Fields before = {};
    };

    void begin_part(std::size_t number);
    std::optional<uint64_t> number_of_file_system(uint64_t fsid);
    static Fields fields_of(const Attributes &attributes, uint64_t file_system);
    Attributes attributes_of(const Fields &fields) const;
    bool next_is(uint64_t tag);
    ListedObject read_next();
    std::optional<ListedObject> find_in(std::size_t part, uint64_t tag);

    std::size_t limit_;
    std::vector<Part> parts_;
    std::size_t bytes_ = 0;               // of the parts
    Fields latest_ = {};                  // that were put
    Position next_;                       // behind the one that was asked about last
    std::vector<uint64_t> file_systems_;  // their fsid: of a directory there is one, or few
};

}  // namespace nfstdm
