// SPDX-License-Identifier: Apache-2.0
// One export where it is mounted: its volume, contacted on first use, and the cache of its objects. Every operation
// waits for its answer and keeps the cache in step. Failures name the server: a volume's own do so by themselves.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/files/absent_names.h"
#include "nfstdm/files/begun_removals.h"
#include "nfstdm/files/known_listings.h"
#include "nfstdm/files/object_cache.h"
#include "nfstdm/files/server_clock.h"
#include "nfstdm/volume/server_config.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

using VolumeFactory = std::function<std::unique_ptr<Volume>(EventLoop &, const ServerConfig &, const ServerExport &)>;

// A file that was made, and as which it is open already, if it is.
struct MadeFile {
    FoundObject object;
    std::unique_ptr<VolumeFile> file;
    bool has_content = false;  // what it was to be made with is in it, on stable storage
};

// A part of a directory's listing that was asked for. The answer comes to it whether somebody still waits or not.
struct DirectoryQuestion {
    FileHandle directory;
    uint64_t cookie = 0;
    uint64_t verifier = 0;
    bool plus = false;  // with READDIRPLUS
    EventLoop::Clock::time_point asked;
    std::optional<Result<DirectoryReply>> reply;
};
using DirectoryQuestionPointer = std::shared_ptr<DirectoryQuestion>;

class MountedVolume {
  public:
    // What is given by reference must outlive the object.
    MountedVolume(EventLoop &loop, const ServerConfig &server, const ServerExport &exported,
                  const VolumeFactory &open_volume, TimeSource now = EventLoop::Clock::now);

    // Contacts the server when that was not done yet. A contact that failed is not tried again for as long as one may
    // take: the operations of one command must not each wait for a server that is down.
    // below: what will be looked up from the root next, asked for with the first contact where the protocol can.
    Result<FileHandle> root(std::span<const std::string> below = {});

    // Other processes of the same program work in the same directories. That these are changed by others is nothing
    // that makes what they lack doubtful before its time.
    void expect_others() { expects_others_ = true; }

    // Begins that contact, without waiting for it, unless there was one before.
    void begin_contact(std::span<const std::string> below);

    // Where the server's block stands in tslnfstab: no other block has the number.
    unsigned server_line() const { return server_.line; }

    // What is below needs a handle, and so a contact that succeeded.
    Volume &volume() { return *volume_; }
    EventLoop &loop() { return loop_; }
    ObjectCache &cache() { return cache_; }

    Result<FoundObject> lookup(const FileHandle &directory, const std::string &name);
    // Learns in one question, where the protocol can, what the lookups of several components one below the other would
    // ask in as many. What it does not learn they ask.
    void look_ahead(const FileHandle &directory, std::span<const std::string> names);
    Result<Attributes> attributes(const FileHandle &object);
    Result<std::string> read_link(const FileHandle &link);
    Status set_attributes(const FileHandle &object, const SetAttributes &set);
    Result<MadeFile> create(const FileHandle &directory, const std::string &name, const SetAttributes &set,
                            std::span<const std::byte> content = {});
    // known: what had the name before, as far as is known.
    Status make_directory(const FileHandle &directory, const std::string &name, uint32_t mode,
                          const std::optional<FoundObject> &known = std::nullopt);
    Status remove(const FileHandle &directory, const std::string &name);
    // Asks for that now, for remove() to wait for; until then the file is known as it was. See BegunRemovals.
    bool begin_removal(const FileHandle &directory, const std::string &name, const FoundObject &file) {
        return removals_.begin(*volume_, directory, name, file);
    }
    Status remove_directory(const FileHandle &directory, const std::string &name);
    // Asked once a file system: what it tells does not change. The attributes are the object's.
    Result<FsInfoReply> fsinfo(const FoundObject &object);
    Result<FsStatReply> fsstat(const FileHandle &object);

    // Asks for the entries from a cookie on without waiting for them; answer() does. An answer that may be as old as
    // what the cache forgets is asked for again. The names alone, or with handles and attributes, if the server can.
    enum class Entries { names, with_attributes };
    DirectoryQuestionPointer ask_directory(const FileHandle &directory, uint64_t cookie, uint64_t verifier,
                                           Entries entries = Entries::with_attributes);
    Result<DirectoryReply> answer(DirectoryQuestionPointer question);
    // What an entry of a reply told.
    void learn_entry(const FileHandle &directory, const DirectoryEntry &entry);
    // A listing that entries may be learnt from again.
    void know_listing(const std::shared_ptr<ListingIndex> &listing) { listings_.add(listing, cache_.changes()); }
    // What the directory's latest listing told of an entry, where that was kept. It is as old as the listing; but what
    // this client changed since is not hidden by it.
    std::optional<ListedObject> listed(const FileHandle &directory, std::string_view name) {
        return listings_.told(directory, name, cache_.changes());
    }

    // The root, if it is known without a question.
    const std::optional<FileHandle> &known_root() const { return root_; }
    // What is known of a name. No server is asked but for the part of a known listing that it came with.
    std::optional<ObjectCache::Known> known(const FileHandle &directory, const std::string &name);

    // Forgets every handle, the root's included.
    void forget_handles();

    // Leaves the server without waiting for that: done is called once, from the loop.
    void detach(DoneCompletion done);

    // A failure that this side found, with the server's name in front.
    Status named(const Status &failure) const { return failure.in("server " + server_.name); }

  private:
    // A contact that was begun ahead of its use, and what was to be looked up with it.
    struct EarlyContact {
        std::vector<std::string> below;
        std::optional<Result<FileHandle>> root;
    };

    Status contact(std::span<const std::string> below);
    Status contact_now(std::span<const std::string> below);
    Result<FileHandle> attach(const ServerConfig &server, std::span<const std::string> below);
    Result<FileHandle> attach_with_version4(const Result<FileHandle> &first, std::span<const std::string> below);
    void learn_path(FileHandle place, std::span<const std::string> names, const PathReply &reply);
    Result<FoundObject> found(const FileHandle &directory, const std::string &name,
                              const std::optional<FileHandle> &handle, const std::optional<Attributes> &attributes);
    Result<FoundObject> with_attributes(const FileHandle &handle);
    std::optional<Attributes> forget(const FileHandle &directory, const std::string &name);
    void learn(const FileHandle &directory, const std::optional<Attributes> &known, const DirectoryChange &change);
    Status end_removal(const FileHandle &directory, const std::string &name, const BegunRemovals::Removal &begun);
    Status remove_by(void (Volume::*operation)(const FileHandle &, std::string_view, Completion<DirectoryChange>),
                     const FileHandle &directory, const std::string &name);
    void learn(const FileHandle &object, const std::optional<Attributes> &attributes);
    Status confirm_made(const FileHandle &directory, const std::string &name, const std::optional<FoundObject> &known,
                        EventLoop::Clock::time_point since);
    Result<bool> is_empty(const FileHandle &directory);
    bool lacks(const FileHandle &directory, const std::string &name);
    void begin_making(const FileHandle &directory, const std::string &name);
    ObjectCache::Answer find_name(const FileHandle &directory, const std::string &name);
    std::optional<KnownListings::Wanted> learn_part_of(const FileHandle &directory, const std::string &name);
    DirectoryQuestionPointer question_of(const KnownListings::Wanted &wanted);

    EventLoop &loop_;
    const ServerConfig &server_;
    const ServerExport &exported_;
    const VolumeFactory &open_volume_;
    const TimeSource now_;
    std::unique_ptr<Volume> volume_;
    std::optional<FileHandle> root_;
    std::shared_ptr<EarlyContact> early_;  // until it is used
    Status contact_failure_;
    EventLoop::Clock::time_point contact_again_;
    ObjectCache cache_;
    AbsentNames absent_;
    KnownListings listings_;
    BegunRemovals removals_;
    // What follows in a listing that entries are learnt from in order, and what the cache had forgotten until then.
    DirectoryQuestionPointer next_part_;
    uint64_t next_part_changes_ = 0;
    ServerClock server_clock_;
    std::unordered_map<uint64_t, VolumeLimits> limits_;  // by fsid
    bool expects_others_ = false;
    bool lists_attributes_ = true;  // until the server turns out to lack READDIRPLUS
};

}  // namespace nfstdm
