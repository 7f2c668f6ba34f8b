// SPDX-License-Identifier: Apache-2.0
// Listings of directories with cookies that stay good: a cookie is made from the entry's name, and a listing is in the
// order of cookies. So it survives entries that come and go, and restarts of the server, on any file system.
#pragma once

#include <sys/stat.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "tools/loopnfsd/base/status.h"
#include "tools/loopnfsd/store/handles.h"
#include "tools/loopnfsd/store/tree.h"

namespace loopnfsd {

struct ListedEntry {
    uint64_t cookie = 0;
    uint64_t inode = 0;
    std::string name;
};

// Cookies below this one are never given to a name found in a directory: 0 is the start, 1 and 2 are "." and "..".
constexpr uint64_t kFirstNameCookie = 1024;
// Neither are those from here on.
constexpr uint64_t kNameCookiesEnd = uint64_t{1} << 63;

uint64_t cookie_of_name(std::string_view name);

class DirectoryListings {
  public:
    // The names in a directory but "." and "..", in the order of their cookies. Valid until the next call.
    Outcome<const std::vector<ListedEntry> *> of(const Object &directory);

    // To be called for every change made through the server; others are noticed by the directory's times.
    void forget(const FileKey &directory);

  private:
    struct Listing {
        FileKey directory;
        statx_timestamp modified{};
        statx_timestamp changed{};
        bool settled = false;
        std::vector<ListedEntry> entries;
    };
    static Outcome<Listing> read(const Object &directory);

    std::list<Listing> listings_;  // the one used last in front
};

}  // namespace loopnfsd
