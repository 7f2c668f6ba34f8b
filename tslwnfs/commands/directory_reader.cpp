// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/commands/directory_reader.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <string_view>

#include "include/tdm.h"
#include "tslwnfs/options/options.h"
#include "tslwnfs/output/messages.h"
#include "tslwnfs/output/output.h"
#include "tslwnfs/storage/held_directory.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

constexpr const char *kReadDir = "read_dir";

enum class Reading : uint8_t { done, failed, local };

// Splits the answers of the two path operations alike: a remark for a local path, a failure for all but 0.
Reading judge(const PathBuffer &path, uint32_t status, uint32_t location, MessageOf<const char *, uint32_t> message) {
    if (status == 0 && location == TDM_LOCATION_REMOTE) return Reading::done;
    trace_message(kReadDir, message, path.c_str(), location);
    return status == 0 && location == TDM_LOCATION_LOCAL ? Reading::local : Reading::failed;
}

struct DirectoryCloser {
    void operator()(DIR *directory) const { closedir(directory); }
};

DIR *open_directory(const PathBuffer &path) {
    const int descriptor = open_local_directory(path.c_str());
    DIR *const directory = descriptor < 0 ? nullptr : fdopendir(descriptor);
    if (directory == nullptr && descriptor >= 0) close(descriptor);
    return directory;
}

// The names of a directory that are wanted, of all that come by.
class WantedNames {
  public:
    WantedNames(NameList &names, const NameFilter &wanted) : names_(names), wanted_(wanted) {}

    void add(std::string_view name) {
        if (!wanted_ || wanted_(name)) names_.add(name);
    }
    void clear() { names_.clear(); }
    unsigned long bytes() const { return names_.bytes(); }

  private:
    NameList &names_;
    const NameFilter &wanted_;
};

bool read_local(const PathBuffer &path, WantedNames &names) {
    names.clear();
    const std::unique_ptr<DIR, DirectoryCloser> directory(open_directory(path));
    int error = directory == nullptr ? errno : 0;
    while (error == 0) {
        errno = 0;
        const dirent *entry = readdir(directory.get());
        if (entry == nullptr) {
            error = errno;
            break;
        }
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") names.add(name);
    }
    if (error == 0) return true;
    trace_message(kReadDir, Message::local_directory_unopenable, path.c_str());
    return false;
}

// Reads a remote directory batch by batch. The last entry of a batch is left to the next one, which continues from the
// position after the entry before it.
class RemoteReader {
  public:
    RemoteReader(const PathBuffer &path, WantedNames &names) : path_(path), names_(names) {}

    [[nodiscard]] bool allocate(uint32_t entries_per_request) {
        // A batch without two more entries than "." or ".." makes no progress.
        constexpr uint32_t kFewest = 3;
        constexpr uint32_t kMost = UINT32_MAX / sizeof(TdmDirEntry);
        const uint32_t count = std::clamp(entries_per_request, kFewest, kMost);
        memory_.reset(new (std::nothrow) TdmDirEntry[count]());
        if (memory_ == nullptr) {
            trace_message(kReadDir, Message::out_of_memory,
                          static_cast<unsigned long>(entries_per_request) * sizeof(TdmDirEntry));
            return false;
        }
        slots_ = {memory_.get(), count};
        return true;
    }

    Reading read_all() {
        TdmReaddirReply reply = {};
        while (reply.end_of_directory == 0) {
            const Reading reading = read_batch(reply);
            if (reading != Reading::done) return reading;
        }
        return Reading::done;
    }

    // Whether all names were given. The library's record of those that were not is for the trace; this is for whoever
    // watches.
    bool tell_left_out() const {
        if (left_out_ == 0) return true;
        terminal::note_failure(std::string(path_.view()) +
                               ": names left out that no path can hold: " + std::to_string(left_out_));
        return false;
    }

  private:
    Reading read_batch(TdmReaddirReply &reply) {
        reply = {};
        uint32_t unused = 0;
        uint32_t location = 0;
        const uint32_t status = tdm_readdir(ctx, path_.c_str(), slots_.data(), &reply,
                                            static_cast<uint32_t>(slots_.size_bytes()), cookie_, &unused, &location);
        const Reading reading = judge(path_, status, location, Message::readdir_location);
        // It holds a part of the listing, too.
        if (status == ENOMEM) trace_message(kReadDir, Message::out_of_memory, bytes_held());
        if (reading != Reading::done) return reading;
        if (reply.entries > slots_.size()) return stuck(location);

        const std::span<const TdmDirEntry> batch = slots_.first(reply.entries);
        const bool last_batch = reply.end_of_directory != 0;
        if (last_batch && (reply.library_word & TDM_NAMES_LEFT_OUT_MASK) == TDM_NAMES_LEFT_OUT)
            left_out_ = reply.library_word & ~TDM_NAMES_LEFT_OUT_MASK;
        take_names(last_batch || batch.empty() ? batch : batch.first(batch.size() - 1));
        if (!last_batch && !advance(batch)) return stuck(location);
        first_batch_ = false;
        return Reading::done;
    }

    unsigned long bytes_held() const { return names_.bytes() + slots_.size_bytes(); }

    void take_names(std::span<const TdmDirEntry> entries) {
        const std::size_t dots = first_batch_ ? 2 : 0;
        for (const TdmDirEntry &entry : entries.subspan(std::min(dots, entries.size()))) {
            names_.add({entry.name, strnlen(entry.name, sizeof entry.name)});
        }
    }

    // Returns false when the next request would give the same entries again.
    bool advance(std::span<const TdmDirEntry> batch) {
        const std::size_t fewest = first_batch_ ? 3 : 2;
        if (batch.size() < fewest || batch[batch.size() - 2].cookie == cookie_) return false;
        cookie_ = batch[batch.size() - 2].cookie;
        return true;
    }

    Reading stuck(uint32_t location) {
        trace_message(kReadDir, Message::readdir_location, path_.c_str(), location);
        return Reading::failed;
    }

    const PathBuffer &path_;
    WantedNames &names_;
    std::unique_ptr<TdmDirEntry[]> memory_;
    std::span<TdmDirEntry> slots_;
    uint64_t cookie_ = 0;
    uint64_t left_out_ = 0;  // names
    bool first_batch_ = true;
};

bool read(const PathBuffer &path, WantedNames &names, bool &complete) {
    TdmFsInfo info = {};
    uint32_t location = 0;
    const uint32_t status = tdm_fsinfo(ctx, path.c_str(), &info, &location);
    Reading reading = judge(path, status, location, Message::fsinfo_location);
    if (reading == Reading::done) {
        if (info.attributes.type != TDM_TYPE_DIRECTORY) {
            print("not a directory\n");
            return false;
        }
        RemoteReader reader(path, names);
        if (!reader.allocate(info.readdir_entries)) return false;
        reading = reader.read_all();
        if (reading == Reading::done) complete = reader.tell_left_out();
    }
    return reading == Reading::local ? read_local(path, names) : reading == Reading::done;
}

}  // namespace

bool read_directory(const PathBuffer &path, NameList &names, bool *complete, const NameFilter &wanted) {
    try {
        bool all = true;
        WantedNames wanted_names(names, wanted);
        const bool done = read(path, wanted_names, all);
        if (complete != nullptr) *complete = all;
        return done;
    } catch (const std::bad_alloc &) {
        const unsigned long bytes = names.bytes();
        names.clear();
        trace_message(kReadDir, Message::out_of_memory, bytes);
        return false;
    }
}
