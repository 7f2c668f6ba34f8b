// SPDX-License-Identifier: Apache-2.0
// The exported folders as every version of NFS acts on them: what the procedures of version 3 and the operations of
// version 4 do alike stands here once, and knows neither's encoding. What is held, listed, open and counted is one.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/faults/faults.h"
#include "tools/loopnfsd/files/changed_attributes.h"
#include "tools/loopnfsd/files/permissions.h"
#include "tools/loopnfsd/store/buffer_pool.h"
#include "tools/loopnfsd/store/capacity.h"
#include "tools/loopnfsd/store/directory.h"
#include "tools/loopnfsd/store/exports.h"
#include "tools/loopnfsd/store/held_writes.h"
#include "tools/loopnfsd/store/open_files.h"
#include "tools/loopnfsd/store/tree.h"
#include "tools/loopnfsd/wire/call.h"

namespace loopnfsd {

struct ServiceSettings {
    uint32_t max_read = 1 << 20;   // bytes of one READ
    uint32_t max_write = 1 << 20;  // bytes of one WRITE
    bool hold_unstable = false;    // keep unstable data in memory until COMMIT
    bool check_ids = false;        // enforce permissions by the caller's uid and gids
    bool sync = true;              // bring stable data to the disk, not only to the kernel
};

class SharedFiles {
  public:
    using Bytes = std::span<const std::byte>;

    struct Folder {
        Object object;
        UniqueFd descriptor;  // of the *at() calls; not readable
    };
    struct MadeObject {
        NfsStatus status = NfsStatus::ok;
        std::optional<Object> object;
    };
    struct Space {  // bytes and files; available: to who is not privileged
        uint64_t total = 0, free = 0, available = 0;
        uint64_t files = 0, files_free = 0, files_available = 0;
    };
    struct WriteArguments {
        uint64_t offset = 0;
        uint32_t stable = 0;  // stable_how
        Bytes data;
    };
    struct SharedRange {
        uint64_t from = 0;  // in the source
        uint64_t to = 0;
        uint64_t count = 0;
    };
    struct WriteResult {
        NfsStatus status = NfsStatus::ok;
        uint32_t count = 0;
    };
    // Takes an entry of a listing; real: an object has that name, and no fault made it up. False ends the listing.
    using EntrySink = std::function<bool(const ListedEntry &entry, bool real)>;

    // exports, tree and faults must outlive this.
    SharedFiles(const ExportTable &exports, Tree &tree, Faults &faults, const ServiceSettings &settings);

    const ExportTable &exports() const { return exports_; }
    Tree &tree() { return tree_; }
    Faults &faults() { return faults_; }
    const ServiceSettings &settings() const { return settings_; }
    uint64_t write_verifier() const { return write_verifier_; }

    // What a crash does to unstable data: gone, and the verifier is another one.
    void forget_unstable();
    // What a clean end does with it.
    void store_unstable();
    uint64_t unstable_bytes() const { return held_.bytes(); }

    // Objects and who may do what to them.
    Outcome<Object> find(Bytes handle);
    Outcome<Folder> find_folder(Bytes handle);
    Outcome<Object> find_child(const Call &call, const Folder &folder, std::string_view name);
    NfsStatus allow(const Call &call, const Export &home, const struct statx &status, unsigned want);
    NfsStatus allow_change(const Call &call, const Outcome<Folder> &folder);  // of a directory's names
    bool read_only(const Call &call, const Export &home);
    std::vector<std::byte> handle_of(const Call &call, const FileKey &key);
    // A status as callers see it: with what is held, and with what a fault adds.
    struct statx shown(const Call &call, const FileKey &key, struct statx status) const;

    // Attributes. access: the bits of RFC 1813 section 3.3.4, which version 4 took over.
    NfsStatus allow_setattr(const Call &call, const Object &object, const ChangedAttributes &changed);
    NfsStatus set_attributes(const Object &object, const ChangedAttributes &changed);
    uint32_t granted(const Call &call, const Object &object, uint32_t access);
    Outcome<Space> space(const Call &call, const Object &object);

    // Data.
    Outcome<OpenFile> open_file(const Call &call, Bytes handle, unsigned want, FileKey &key);
    uint32_t read_count(const Call &call, const struct statx &status, uint64_t offset, uint32_t asked);
    NfsStatus read_bytes(const OpenFile &file, const FileKey &key, uint64_t offset, std::span<std::byte> bytes);
    std::shared_ptr<std::byte[]> buffer() { return buffers_.take(); }  // for a READ and its padding
    WriteResult write(const Call &call, const OpenFile &file, const FileKey &key, const WriteArguments &arguments);
    NfsStatus commit(const OpenFile &file, const FileKey &key);
    // Lets a range of the file share the blocks of another one's, open as source. False where that cannot be: nothing
    // was done then.
    bool share(const Call &call, int source, const OpenFile &file, const FileKey &key, const SharedRange &range);

    // Names. Those that make one expect that allow_change() and check_new_name() were asked.
    MadeObject make_directory(const Call &call, const Folder &folder, std::string_view name,
                              const ChangedAttributes &changed);
    MadeObject make_link(const Call &call, const Folder &folder, std::string_view name,
                         const ChangedAttributes &changed, std::string_view target);
    MadeObject make_node(const Call &call, const Folder &folder, std::string_view name,
                         const ChangedAttributes &changed, mode_t type);
    MadeObject create_file(const Call &call, const Folder &folder, std::string_view name,
                           const ChangedAttributes &changed);
    MadeObject reuse_file(const Call &call, const Folder &folder, std::string_view name,
                          const ChangedAttributes &changed);
    MadeObject repeat_exclusive(const Folder &folder, std::string_view name, const ChangedAttributes &times);
    NfsStatus unlink(const Folder &folder, std::string_view name, int flags);
    NfsStatus move(const Folder &from, std::string_view old_name, const Folder &to, std::string_view new_name);
    NfsStatus add_name(const Object &object, const Folder &folder, std::string_view name);
    Outcome<std::string> target_of(const Object &link);

    // Gives the entries behind a cookie, dots: with "." and "..". The outcome tells whether the sink took them all.
    Outcome<bool> list(const Call &call, const Folder &folder, uint64_t after, bool dots, const EntrySink &sink);

  private:
    // Makes a name in a folder; gives a status.
    using Maker = std::function<NfsStatus(const Folder &folder, const char *name)>;

    MadeObject make_object(const Call &call, const Folder &folder, std::string_view name, ChangedAttributes changed,
                           const Maker &maker);
    NfsStatus set_size(const FileKey &key, uint64_t size);
    void lose(const FileKey &key, const struct statx &status);
    Bytes what_fits(const Call &call, const OpenFile &file, const FileKey &key, const WriteArguments &arguments);
    NfsStatus store_held(const OpenFile &file, const FileKey &key);
    NfsStatus sync(int descriptor) const;
    bool list_extra(const Call &call, uint64_t after, const EntrySink &sink);

    const ExportTable &exports_;
    Tree &tree_;
    Faults &faults_;
    ServiceSettings settings_;
    OpenFiles files_;
    HeldWrites held_;
    DirectoryListings listings_;
    Capacity capacity_;
    BufferPool buffers_;
    uint64_t write_verifier_;
};

// Where the verifier of an exclusive creation is kept, so that a repeat after a restart is recognised: in the times.
ChangedAttributes times_of_verifier(std::span<const std::byte> verifier);

}  // namespace loopnfsd
