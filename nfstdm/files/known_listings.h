// SPDX-License-Identifier: Apache-2.0
// The listings of one mount that entries may be asked for again from, a part at a time.
//
// Who walks a directory in order asks for one entry after the other, each of them part of what a listing brought and
// the cache has lost since. One call brings a thousand of them back. Who asks for an entry here and there is better off
// with a LOOKUP: so a part is asked for when it follows the part before, or when it is asked about twice.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <optional>
#include <string_view>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/files/listing_index.h"

namespace nfstdm {

class KnownListings {
  public:
    using TimePoint = EventLoop::Clock::time_point;

    // changes: how often this side has changed something up to then.
    void add(const std::shared_ptr<ListingIndex> &listing, uint64_t changes);
    void forget(const FileHandle &directory);
    void clear() { listings_.clear(); }

    // What a listing told of the object that has a name, if it told and this side has changed nothing since.
    std::optional<ListedObject> told(const FileHandle &directory, std::string_view name, uint64_t changes);

    struct Wanted {
        std::shared_ptr<const ListingIndex> listing;
        std::size_t part = 0;  // that the name came with
        DirectoryPosition from;
        bool in_order = false;  // this follows what was learnt last
    };
    // Where to ask for what a name came with, when it is not known any more; nothing when the name is to be looked up
    // by itself. young: how long what an answer tells is good for.
    std::optional<Wanted> part_to_learn(const FileHandle &directory, std::string_view name, TimePoint now,
                                        EventLoop::Clock::duration young);
    // told: whether the name was among what came; next: where to go on from then, unless that was the end.
    void learnt(const Wanted &wanted, bool told, const std::optional<DirectoryPosition> &next, TimePoint now);

  private:
    static constexpr std::size_t kListingsMaximum = 64;
    static constexpr std::size_t kBytesMaximum = std::size_t{256} << 20;
    static constexpr std::size_t kObjectBytesMaximum = ListedObjects::kBytesMaximum;  // of all but the latest

    struct Known {
        std::shared_ptr<ListingIndex> listing;
        uint64_t changes = 0;
        std::optional<std::size_t> missed;      // the latest part that a name was missing of
        std::optional<std::size_t> learnt;      // the latest part that was asked for again
        TimePoint when;                         // that was
        std::optional<DirectoryPosition> next;  // behind what came then
    };
    using Listings = std::list<Known>;

    Listings::iterator find(const FileHandle &directory);

    Listings listings_;  // used last, first
};

}  // namespace nfstdm
