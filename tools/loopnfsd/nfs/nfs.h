// SPDX-License-Identifier: Apache-2.0
// The NFS version 3 program (RFC 1813 section 3). A procedure decodes its arguments, acts, and writes its results; it
// gives false when the arguments make no sense. The procedures stand in nfs_attributes, nfs_names, nfs_make, nfs_io and
// nfs_listing.
#pragma once

#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/faults/faults.h"
#include "tools/loopnfsd/nfs/attributes.h"
#include "tools/loopnfsd/store/buffer_pool.h"
#include "tools/loopnfsd/store/capacity.h"
#include "tools/loopnfsd/store/directory.h"
#include "tools/loopnfsd/store/exports.h"
#include "tools/loopnfsd/store/held_writes.h"
#include "tools/loopnfsd/store/open_files.h"
#include "tools/loopnfsd/store/tree.h"
#include "tools/loopnfsd/wire/rpc.h"

namespace loopnfsd {

struct ServiceSettings {
    uint32_t max_read = 1 << 20;   // bytes of one READ
    uint32_t max_write = 1 << 20;  // bytes of one WRITE
    bool hold_unstable = false;    // keep unstable data in memory until COMMIT
    bool check_ids = false;        // enforce permissions by the caller's uid and gids
    bool sync = true;              // bring stable data to the disk, not only to the kernel
};

class NfsService final : public Program {
  public:
    // exports, tree and faults must outlive the service.
    NfsService(const ExportTable &exports, Tree &tree, Faults &faults, const ServiceSettings &settings);

    uint32_t number() const override;
    uint32_t version() const override;
    bool run(uint32_t procedure, Call &call) override;

    // What a crash does to unstable data: gone, and the verifier is another one.
    void forget_unstable();
    // What a clean end does with it.
    void store_unstable();
    uint64_t unstable_bytes() const { return held_.bytes(); }

  private:
    using Bytes = std::span<const std::byte>;
    struct Where {  // diropargs3
        Bytes handle;
        std::string_view name;
    };
    struct Folder {
        Object object;
        UniqueFd descriptor;  // of the *at() calls; not readable
    };
    struct MadeObject {
        NfsStatus status = NfsStatus::ok;
        std::optional<Object> object;
    };
    // Makes a name in a folder; gives a status.
    using Maker = std::function<NfsStatus(const Folder &folder, const char *name)>;

    bool null(Call &call);
    bool getattr(Call &call);
    bool setattr(Call &call);
    bool lookup(Call &call);
    bool access(Call &call);
    bool readlink(Call &call);
    bool read(Call &call);
    bool write(Call &call);
    bool create(Call &call);
    bool mkdir(Call &call);
    bool symlink(Call &call);
    bool mknod(Call &call);
    bool remove(Call &call);
    bool rmdir(Call &call);
    bool rename(Call &call);
    bool link(Call &call);
    bool readdir(Call &call);
    bool readdirplus(Call &call);
    bool fsstat(Call &call);
    bool fsinfo(Call &call);
    bool pathconf(Call &call);
    bool commit(Call &call);
    struct Row;
    static const Row kRows[];

    static bool get_handle(nfstdm::xdr::Reader &in, Bytes &handle);
    static bool get_where(nfstdm::xdr::Reader &in, Where &where);

    // Common to several procedures.
    Outcome<Object> find(Bytes handle);
    Outcome<Folder> find_folder(Bytes handle);
    NfsStatus allow(const Call &call, const Export &home, const struct statx &status, unsigned want);
    NfsStatus allow_change(const Call &call, const Outcome<Folder> &folder);  // of a directory's names
    void put_status(Call &call, NfsStatus status);
    void put_post_op(Call &call, const Object *object);  // as it is now
    void put_post_op(Call &call, const Outcome<Object> &object);
    void put_wcc(Call &call, const Object *object);  // object->status is the one before
    void put_wcc(Call &call, const Outcome<Folder> &folder);
    void put_handle(Call &call, const FileKey &key);
    struct statx shown(const Call &call, const FileKey &key, struct statx status) const;
    bool read_only(const Call &call, const Export &home);

    // nfs_attributes
    NfsStatus allow_setattr(const Call &call, const Object &object, const ChangedAttributes &changed);
    NfsStatus set_attributes(const Object &object, const ChangedAttributes &changed);
    NfsStatus set_size(const FileKey &key, uint64_t size);
    uint32_t granted(const Call &call, const Object &object, uint32_t asked);

    // nfs_make
    void make(Call &call, const Where &where, const ChangedAttributes &changed, const Maker &maker);
    MadeObject make_object(Call &call, const Folder &folder, std::string_view name, ChangedAttributes changed,
                           const Maker &maker);
    void put_made(Call &call, const MadeObject &made, const Outcome<Folder> &folder);
    MadeObject create_file(Call &call, const Folder &folder, std::string_view name, const ChangedAttributes &changed);
    MadeObject reuse_file(Call &call, const Folder &folder, std::string_view name, const ChangedAttributes &changed);
    MadeObject repeat_exclusive(const Folder &folder, std::string_view name, const ChangedAttributes &times);

    // nfs_names
    NfsStatus unlink(const Folder &folder, std::string_view name, int flags);
    NfsStatus move(const Folder &from, std::string_view old_name, const Folder &to, std::string_view new_name);
    void lose(const FileKey &key, const struct statx &status);

    // nfs_io
    struct WriteArguments {
        Bytes handle;
        uint64_t offset = 0;
        uint32_t stable = 0;
        Bytes data;
    };
    struct WriteResult {
        NfsStatus status = NfsStatus::ok;
        uint32_t count = 0;
    };
    Outcome<OpenFile> open_file(Call &call, Bytes handle, unsigned want, FileKey &key);
    uint32_t read_count(const Call &call, const struct statx &status, uint64_t offset, uint32_t asked);
    NfsStatus read_bytes(const OpenFile &file, const FileKey &key, uint64_t offset, std::span<std::byte> bytes);
    static bool get_write_arguments(nfstdm::xdr::Reader &in, WriteArguments &arguments);
    WriteResult write_bytes(Call &call, const OpenFile &file, const FileKey &key, const WriteArguments &arguments);
    Bytes what_fits(Call &call, const OpenFile &file, const FileKey &key, const WriteArguments &arguments);
    NfsStatus commit_held(const OpenFile &file, const FileKey &key);
    NfsStatus sync(int descriptor) const;
    void put_post_op(Call &call, const Outcome<OpenFile> &file, const FileKey &key);
    void put_file_wcc(Call &call, const Outcome<OpenFile> &file, const FileKey &key);

    // nfs_listing
    struct ListArguments;
    class Page;
    static bool get_list_arguments(nfstdm::xdr::Reader &in, bool plus, ListArguments &arguments);
    bool list(Call &call, bool plus);
    NfsStatus fill(Call &call, const Folder &folder, const ListArguments &arguments, Page &page);
    bool add_names(Call &call, const Folder &folder, const std::vector<ListedEntry> &names, Page &page);
    static bool add_hostile_names(Page &page);
    static bool add_without_end(Page &page);
    bool add_entry(Call &call, const Folder &folder, const ListedEntry &entry, Page &page);

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

}  // namespace loopnfsd
