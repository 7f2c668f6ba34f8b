// SPDX-License-Identifier: Apache-2.0
// The NFS version 3 program (RFC 1813 section 3). A procedure decodes its arguments, acts, and writes its results; it
// gives false when the arguments make no sense. The procedures stand in nfs_attributes, nfs_names, nfs_make, nfs_io and
// nfs_listing.
#pragma once

#include <functional>
#include <span>
#include <string_view>

#include "tools/loopnfsd/files/shared_files.h"
#include "tools/loopnfsd/nfs/attributes.h"
#include "tools/loopnfsd/wire/rpc.h"

namespace loopnfsd {

class NfsService final : public Program {
  public:
    // files must outlive the service.
    explicit NfsService(SharedFiles &files) : files_(files) {}

    uint32_t number() const override;
    uint32_t version() const override;
    bool run(uint32_t procedure, Call &call) override;

  private:
    using Bytes = SharedFiles::Bytes;
    using Folder = SharedFiles::Folder;
    using MadeObject = SharedFiles::MadeObject;
    struct Where {  // diropargs3
        Bytes handle;
        std::string_view name;
    };
    // Makes an object in a folder.
    using Maker = std::function<MadeObject(const Folder &folder, const ChangedAttributes &changed)>;

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
    void put_status(Call &call, NfsStatus status);
    void put_post_op(Call &call, const Object *object);  // as it is now
    void put_post_op(Call &call, const Outcome<Object> &object);
    void put_wcc(Call &call, const Object *object);  // object->status is the one before
    void put_wcc(Call &call, const Outcome<Folder> &folder);
    void put_handle(Call &call, const FileKey &key);

    // nfs_names
    bool unlink(Call &call, int flags);  // as unlinkat() takes them

    // nfs_make
    void make(Call &call, const Where &where, ChangedAttributes changed, const Maker &maker);
    void put_made(Call &call, const MadeObject &made, const Outcome<Folder> &folder);

    // nfs_io
    struct WriteArguments {
        Bytes handle;
        SharedFiles::WriteArguments write;
    };
    static bool get_write_arguments(nfstdm::xdr::Reader &in, WriteArguments &arguments);
    void put_post_op(Call &call, const Outcome<OpenFile> &file, const FileKey &key);
    void put_file_wcc(Call &call, const Outcome<OpenFile> &file, const FileKey &key);

    // nfs_listing
    struct ListArguments;
    class Page;
    static bool get_list_arguments(nfstdm::xdr::Reader &in, bool plus, ListArguments &arguments);
    bool list(Call &call, bool plus);
    NfsStatus fill(Call &call, const Folder &folder, const ListArguments &arguments, Page &page);
    bool add_entry(Call &call, const Folder &folder, const ListedEntry &entry, Page &page);

    SharedFiles &files_;
};

}  // namespace loopnfsd
