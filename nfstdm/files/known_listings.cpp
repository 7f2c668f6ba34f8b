// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/known_listings.h"

#include <algorithm>
#include <utility>

namespace nfstdm {
namespace {

// As far as one answer may reach.
constexpr std::size_t kPartsAhead = 2;

}  // namespace

KnownListings::Listings::iterator KnownListings::find(const FileHandle &directory) {
    return std::ranges::find_if(listings_,
                                [&directory](const Known &known) { return known.listing->directory() == directory; });
}

void KnownListings::add(const std::shared_ptr<ListingIndex> &listing, uint64_t changes) {
    forget(listing->directory());
    std::size_t object_bytes = 0;
    for (const Known &known : listings_) {
        object_bytes += known.listing->objects().bytes();
        if (object_bytes > kObjectBytesMaximum) known.listing->objects().release();
    }
    listings_.push_front({listing, changes, {}, {}, {}, {}});
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

std::optional<ListedObject> KnownListings::told(const FileHandle &directory, std::string_view name, uint64_t changes) {
    const auto known = find(directory);
    if (known == listings_.end() || known->changes != changes) return std::nullopt;
    listings_.splice(listings_.begin(), listings_, known);
    return known->listing->told(name);
}

std::optional<KnownListings::Wanted> KnownListings::part_to_learn(const FileHandle &directory, std::string_view name,
                                                                  TimePoint now, EventLoop::Clock::duration young) {
    const auto known = find(directory);
    if (known == listings_.end()) return std::nullopt;
    listings_.splice(listings_.begin(), listings_, known);
    const auto part = known->listing->part_of(name);
    if (!part) return std::nullopt;
    const bool again = std::exchange(known->missed, part) == part;
    const bool in_order = known->next && *part >= *known->learnt && *part <= *known->learnt + kPartsAhead;
    if (in_order) return Wanted{known->listing, *part, *known->next, true};
    if (known->learnt == part && now - known->when < young) return std::nullopt;  // it did not tell
    if (!again && known->learnt != part) return std::nullopt;
    const auto &[cookie, verifier, first, bytes] = known->listing->part(*part);
    return Wanted{known->listing, *part, {cookie, verifier}, false};
}

void KnownListings::learnt(const Wanted &wanted, bool told, const std::optional<DirectoryPosition> &next,
                           TimePoint now) {
    const auto known = find(wanted.listing->directory());
    if (known == listings_.end()) return;
    known->next = told ? next : std::nullopt;
    known->when = now;
    known->learnt = wanted.part;
    if (!told && wanted.in_order) known->learnt.reset();  // its part may still tell
}

}  // namespace nfstdm
