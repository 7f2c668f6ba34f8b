// SPDX-License-Identifier: Apache-2.0
// The entries of a listing that are shown, with what a layout shows of them. Of millions of entries few bytes each are
// kept: what sets an entry apart from the one before.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "nfstdm/base/differences.h"

// What the layouts show of an entry's attributes.
struct Details {
    uint64_t size = 0;
    uint64_t time = 0;
    uint32_t mode = 0;
    uint32_t links = 0;
    uint32_t uid = 0;
    uint32_t gid = 0;
    bool is_local = false;
};

class ListedEntries {
  public:
    struct Entry {
        std::size_t place = 0;  // in the list of names
        Details details;
    };

    void add(const Entry &entry);

    std::size_t size() const { return size_; }
    // Of memory, about.
    std::size_t bytes() const { return sizeof *this + bytes_ + blocks_.size() * sizeof(std::string); }

    // Reads entries that are near each other one after the other. Who reads at several places has a reader for each.
    // The entries must outlive it, and not change.
    class Reader {
      public:
        explicit Reader(const ListedEntries &entries) : entries_(entries) {}
        // Valid until the next call.
        const Entry &at(std::size_t index);

      private:
        const ListedEntries &entries_;
        std::vector<Entry> block_;
        std::size_t first_ = 0;  // the index of the block's first entry
    };

  private:
    static constexpr std::size_t kBlock = 128;  // entries
    static constexpr std::size_t kFields = 8;
    using Fields = nfstdm::Numbers<kFields>;

    static Fields fields_of(const Entry &entry);
    static Entry entry_of(const Fields &fields);
    static Fields expected_behind(const Fields &fields);
    std::vector<Entry> block(std::size_t number) const;

    std::vector<std::string> blocks_;  // the last one is being filled
    Fields latest_ = {};
    std::size_t size_ = 0;
    std::size_t bytes_ = 0;  // of the blocks that are full
};
