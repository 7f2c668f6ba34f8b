// SPDX-License-Identifier: Apache-2.0
// What directories are known to lack, for whoever makes one file after the other.
//
// A name is looked up before its file is made, so that nothing is written over by mistake. When several names in a row
// were not there, the names that the directory has are asked for instead, with one call: for a second, what they lack
// need not be looked up. A listing only ever tells that a name is absent, never that it is there.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "nfstdm/files/object_cache.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

class AbsentNames {
  public:
    using TimePoint = EventLoop::Clock::time_point;

    static constexpr std::size_t kMadeMinimum = 4;    // names in a row that are made before a listing is asked for
    static constexpr std::size_t kNamesForOne = 32;   // that a listing may hold for each name that was made
    static constexpr std::size_t kNameMaximum = 128;  // bytes of a name that is not looked up

    explicit AbsentNames(TimeSource now) : now_(std::move(now)) {}

    // Whether the directory has no such name, and none either that its server may take for the same.
    bool lacks(const FileHandle &directory, std::string_view name);

    // A name that was not there is going to be made.
    void making(const FileHandle &directory, std::string_view name);
    // From now on the name may be there.
    void may_have(const FileHandle &directory, std::string_view name);

    // Whether the names of the directory should be asked for, so that this one need not be looked up.
    bool wants_names(const FileHandle &directory, std::string_view name);
    // The answer, and when it was asked for: names from the start of the directory on.
    void learn(const FileHandle &directory, TimePoint asked, const Result<DirectoryReply> &names);
    // The directory was made, by a call that went out then: nothing is in it.
    void learn_empty(const FileHandle &directory, TimePoint asked);

    // Somebody else changed the directory.
    void forget(const FileHandle &directory);
    void clear() { directories_.clear(); }

  private:
    static constexpr std::size_t kDirectoriesMaximum = 16;

    struct Directory {
        FileHandle handle;
        std::unordered_set<uint64_t> names;  // hashes: two that are the same only cost a lookup
        TimePoint until;                     // that names are all there are
        std::size_t made = 0;                // names, each soon after the one before, since the latest listing
        TimePoint made_last;
        std::size_t wanted = kMadeMinimum;  // of them, for the next listing
    };

    Directory *find(const FileHandle &directory);
    Directory &at(const FileHandle &directory);
    uint64_t hash_of(std::string_view name);

    const TimeSource now_;
    std::list<Directory> directories_;  // used last, first
    std::string folded_;                // the latest, for its memory
};

}  // namespace nfstdm
