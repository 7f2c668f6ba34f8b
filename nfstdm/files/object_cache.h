// SPDX-License-Identifier: Apache-2.0
// What is known for a few seconds about the objects of one mount: the handles of names and the attributes of handles.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "nfstdm/files/expiring_cache.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

using TimeSource = std::function<EventLoop::Clock::time_point()>;

struct FoundObject {
    FileHandle handle;
    Attributes attributes;
};

// Puts together what a name in a directory is kept under.
void set_name_key(std::string &key, const FileHandle &directory, std::string_view name);

class ObjectCache {
  public:
    using TimePoint = EventLoop::Clock::time_point;

    static constexpr std::size_t kLimit = 32768;               // names, and as many attributes
    static constexpr std::chrono::seconds kLifetime{5};        // of what is there
    static constexpr std::chrono::seconds kAbsentLifetime{1};  // of what is not there

    explicit ObjectCache(TimeSource now) : now_(std::move(now)) {}

    void put_attributes(const FileHandle &object, const std::optional<Attributes> &attributes);
    std::optional<Attributes> attributes(const FileHandle &object);
    void forget_attributes(const FileHandle &object) {
        ++changes_;
        attributes_.erase(object);
    }

    // handle: nothing when the directory is known not to have the name.
    void put_name(const FileHandle &directory, std::string_view name, const std::optional<FileHandle> &handle);
    struct Answer {
        bool known = false;
        std::optional<FileHandle> handle;
    };
    Answer find_name(const FileHandle &directory, std::string_view name);
    void forget_name(const FileHandle &directory, std::string_view name) {
        ++changes_;
        names_.erase(key(directory, name));
    }
    // What is known of a name and its object, and until when, for another cache of the same mount.
    struct Known {
        FileHandle handle;
        Attributes attributes;
        TimePoint until;
    };
    std::optional<Known> known(const FileHandle &directory, std::string_view name);
    // Takes over what another cache knew, unless what is known here is younger.
    void put_known(const FileHandle &directory, std::string_view name, const Known &known);

    // All that a directory is known to have, and to lack.
    void forget_names(const FileHandle &directory);

    void clear();

    // Grows whenever something is forgotten because it does not hold any more: an answer to what was asked before then
    // may be no younger.
    uint64_t changes() const { return changes_; }

  private:
    struct Name {
        std::optional<FileHandle> handle;
        uint64_t number = 0;  // in the order in which names were put
    };

    const std::string &key(const FileHandle &directory, std::string_view name);

    TimeSource now_;
    ExpiringCache<FileHandle, Attributes, FileHandleHash> attributes_{kLimit};
    ExpiringCache<std::string, Name> names_{kLimit};
    uint64_t names_put_ = 0;
    uint64_t changes_ = 0;
    ExpiringCache<FileHandle, uint64_t, FileHandleHash> forgotten_{kLimit};  // the last name not to be known any more
    std::string key_;                                                        // the latest made, for its memory
};

}  // namespace nfstdm
