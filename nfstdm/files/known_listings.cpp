// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/known_listings.h"

#include <algorithm>
#include <utility>

namespace nfstdm {

KnownListings::Listings::iterator KnownListings::find(const FileHandle &directory) {
    return std::ranges::find_if(listings_,
                                [&directory](const Known &known) { return known.listing->directory() == directory; });
}

void KnownListings::add(const std::shared_ptr<const ListingIndex> &listing) {
    forget(listing->directory());
    listings_.push_front({listing, {}, {}, {}});
    std::size_t bytes = 0;
    std::size_t count = 0;
    std::erase_if(listings_, [&](const Known &known) {
        bytes += known.listing->bytes();
        return ++count > 1 && (count > kListingsMaximum || bytes > kBytesMaximum);
    });
}

void KnownListings::forget(const FileHandle &directory) {
    if (const auto known = find(directory); known != listings_.end()) listings_.erase(known);
}

std::optional<KnownListings::Wanted> KnownListings::part_to_learn(const FileHandle &directory, std::string_view name,
                                                                  TimePoint now, EventLoop::Clock::duration young) {
    const auto known = find(directory);
    if (known == listings_.end()) return std::nullopt;
    listings_.splice(listings_.begin(), listings_, known);
    const auto part = known->listing->part_of(name);
    if (!part) return std::nullopt;
    const bool again = std::exchange(known->missed, part) == part;
    const bool in_order = known->learnt && *known->learnt + 1 == *part;
    if (known->learnt == part && now - known->when < young) return std::nullopt;  // it did not tell
    if (!again && !in_order && known->learnt != part) return std::nullopt;
    return Wanted{known->listing, *part, in_order};
}

void KnownListings::learnt(const FileHandle &directory, std::size_t part, TimePoint now) {
    const auto known = find(directory);
    if (known == listings_.end()) return;
    known->learnt = part;
    known->when = now;
}

}  // namespace nfstdm
