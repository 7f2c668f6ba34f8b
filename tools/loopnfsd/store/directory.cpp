// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/directory.h"

#include <fcntl.h>

#include <algorithm>
#include <ctime>
#include <utility>

#include "tools/loopnfsd/store/scan.h"

namespace loopnfsd {

namespace {

constexpr std::size_t kListingsKept = 16;
constexpr int64_t kSettled = 100'000'000;  // nanoseconds; file systems stamp in steps of up to 10 ms

bool same(const statx_timestamp &left, const statx_timestamp &right) {
    return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

// A directory that changed just now may change again within the same stamp, which would go unnoticed.
bool is_settled(const statx_timestamp &changed) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return (now.tv_sec - changed.tv_sec) * 1'000'000'000 + (now.tv_nsec - int64_t{changed.tv_nsec}) > kSettled;
}

}  // namespace

uint64_t cookie_of_name(std::string_view name) {
    uint64_t hash = 14695981039346656037U;
    for (const char letter : name)
        hash = (hash ^ static_cast<unsigned char>(letter)) * 1099511628211U;
    hash ^= hash >> 32;
    hash *= 0x9E3779B97F4A7C15U;
    hash ^= hash >> 29;
    return kFirstNameCookie + hash % (kNameCookiesEnd - kFirstNameCookie);
}

Outcome<const std::vector<ListedEntry> *> DirectoryListings::of(const Object &directory) {
    const auto kept = std::ranges::find(listings_, directory.key, &Listing::directory);
    if (kept != listings_.end() && kept->settled && same(kept->modified, directory.status.stx_mtime) &&
        same(kept->changed, directory.status.stx_ctime)) {
        listings_.splice(listings_.begin(), listings_, kept);
        return &listings_.front().entries;
    }
    if (kept != listings_.end()) listings_.erase(kept);
    auto listing = read(directory);
    if (!listing.ok()) return listing.status();
    listings_.push_front(std::move(*listing));
    if (listings_.size() > kListingsKept) listings_.pop_back();
    return &listings_.front().entries;
}

void DirectoryListings::forget(const FileKey &directory) {
    std::erase_if(listings_, [&](const Listing &listing) { return listing.directory == directory; });
}

Outcome<DirectoryListings::Listing> DirectoryListings::read(const Object &directory) {
    auto opened = directory.open(O_RDONLY | O_DIRECTORY);
    if (!opened.ok()) return opened.status();
    Listing listing{directory.key,
                    directory.status.stx_mtime,
                    directory.status.stx_ctime,
                    is_settled(directory.status.stx_ctime),
                    {}};
    const NfsStatus status = scan_directory(std::move(*opened), [&](const dirent &entry) {
        listing.entries.push_back({cookie_of_name(entry.d_name), entry.d_ino, entry.d_name});
    });
    if (status != NfsStatus::ok) return status;
    std::ranges::sort(listing.entries, [](const ListedEntry &left, const ListedEntry &right) {
        return std::pair(left.cookie, std::string_view(left.name)) <
               std::pair(right.cookie, std::string_view(right.name));
    });
    // Two names with one cookie: one in 2^63 pairs. The second moves up, so that none is lost within a listing.
    for (std::size_t i = 1; i < listing.entries.size(); ++i)
        listing.entries[i].cookie = std::max(listing.entries[i].cookie, listing.entries[i - 1].cookie + 1);
    return listing;
}

}  // namespace loopnfsd
