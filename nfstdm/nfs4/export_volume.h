// SPDX-License-Identifier: Apache-2.0
// One export of a server as a volume. Its operations stand by what they are about: the contact and the calls in
// export_volume.cpp, names and attributes in export_names.cpp, files that are made in export_create.cpp, what is taken
// away in export_removals.cpp, the content of files in export_files.cpp, figures of the file system in
// export_figures.cpp, copies that the server makes and holes in export_copies.cpp.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "nfstdm/base/scoped.h"
#include "nfstdm/nfs4/arguments.h"
#include "nfstdm/nfs4/call.h"
#include "nfstdm/nfs4/export_contact.h"
#include "nfstdm/nfs4/opens.h"
#include "nfstdm/nfs4/replies.h"
#include "nfstdm/nfs4/server_copy.h"
#include "nfstdm/nfs4/shared_server.h"
#include "nfstdm/remote/export.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm::nfs4 {

// What transfers of a file system carry, as its server and the session allow.
VolumeLimits limits_from(const AttributeValues &values, const ChannelSizes &sizes);

class ExportVolume : public remote::Export {
  public:
    ExportVolume(std::shared_ptr<SharedServer> server, ServerExport share);
    ~ExportVolume() override;

    void expect(std::vector<std::string> names) override { expected_ = std::move(names); }
    PathReply take_expected() override { return std::exchange(found_below_, {}); }
    void detach(DoneCompletion done) override;
    const VolumeLimits &limits() const override { return limits_; }
    std::optional<FsInfoReply> root_info() const override { return FsInfoReply{root_attributes_, limits_}; }
    bool busy() const override { return session_.busy(); }

    void getattr(const FileHandle &object, Completion<Attributes> done) override;
    void setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) override;
    void lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) override;
    std::size_t path_components_maximum() const override;
    void lookup_path(const FileHandle &directory, const std::vector<std::string> &names,
                     Completion<PathReply> done) override;
    void readlink(const FileHandle &link, Completion<std::string> done) override;
    std::unique_ptr<VolumeFile> open(const FileHandle &file, Access access) override;
    void create(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                Completion<CreatedFile> done) override;
    void create_with(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                     std::span<const std::byte> content, Completion<CreatedFile> done) override;
    bool tells_holes() const override { return session_.minor_version() >= kMinorVersionOfCopies && abilities_.seeks; }
    void mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
               Completion<CreateReply> done) override;
    void remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) override;
    void rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) override;
    void readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool plus,
                 Completion<DirectoryReply> done) override;
    void fsinfo(const FileHandle &object, Completion<FsInfoReply> done) override;
    void fsstat(const FileHandle &object, Completion<FsStatReply> done) override;

    // What is asked of an open file. Whoever holds it says so to opens().
    Opens &opens() { return opens_; }
    void read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer, Completion<ReadReply> done);
    void write(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
               Completion<WriteReply> done);
    void commit(const FileHandle &file, Completion<CommitReply> done);
    // source is the volume that from lies on; null when it is of another protocol.
    void copy(ExportVolume *source, const FileHandle &from, const FileHandle &to, const CopyRange &range,
              Completion<CopyReply> done);
    void extent(const FileHandle &file, uint64_t offset, const Completion<Extent> &done);

  private:
    std::unique_ptr<Call> new_call(std::string_view name);
    template <class Reply, class Put, class Read>
    std::unique_ptr<Call> make(std::string_view name, Completion<Reply> done, Put put, Read read);
    template <class Reply, class Put, class Read>
    void start(std::string_view name, Completion<Reply> done, Put put, Read read) {
        send(make<Reply>(name, std::move(done), std::move(put), std::move(read)));
    }
    void send(std::unique_ptr<Call> call);
    void start_explained(std::unique_ptr<Call> call);
    void explain(const Status &failure, const DoneCompletion &done);
    void ask_where(const Status &failure, const DoneCompletion &done);
    void ask_flavours(const Status &failure, const DoneCompletion &done);
    SetAttributes settable(const SetAttributes &set) const;
    void without_mode_if_need_be(Call &call);

    // A file that is to be removed.
    struct Removal {
        FileHandle directory;
        std::string name;
        Completion<DirectoryChange> done;
    };
    struct Together;
    std::size_t removals_together() const;
    void send_removals();
    void fail_removals(const Status &why);
    std::unique_ptr<Call> new_unlink(std::string_view name, const FileHandle &directory, std::string_view entry,
                                     bool is_directory, Completion<DirectoryChange> done);
    void remove_together(std::deque<Removal> removals);

    void read_whole(const FileHandle &file, std::span<std::byte> buffer, const Completion<ReadReply> &done);
    void open_read_close(const FileHandle &file, std::span<std::byte> buffer, Completion<ReadReply> done);
    void read_first(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                    const Completion<ReadReply> &done);
    std::unique_ptr<Call> new_read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                                   const std::shared_ptr<StateId> &used, Completion<ReadReply> done);
    void read_open(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer, Completion<ReadReply> done);
    void read_when_open(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                        Completion<ReadReply> done);
    void read_early(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                    const Completion<ReadReply> &done);
    void write_open(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
                    Completion<WriteReply> done);
    void write_last(const FileHandle &file, uint64_t offset, std::span<const std::byte> data,
                    const Completion<WriteReply> &done);
    void with_state(Call &call, const FileHandle &file, uint32_t access, std::shared_ptr<StateId> used);

    Status not_told();
    void seek_end(const FileHandle &file, uint64_t begin, const Completion<Extent> &done);

    Status use_security(const std::string &security);

    void contact() override;
    void find_export();
    void find_with_another(const std::vector<uint32_t> &offered);
    void contacted(Result<FoundExport> result);
    void let_go() override;
    void end_all(const Status &why) override;

    const std::shared_ptr<SharedServer> server_;
    Session &session_;
    bool joined_ = false;  // a user of the session
    std::vector<std::string> expected_;
    PathReply found_below_;
    VolumeLimits limits_;
    std::optional<Attributes> root_attributes_;  // when it was attached
    std::string security_;
    std::shared_ptr<rpc::Authenticator> authenticator_;
    Opens opens_;
    Abilities abilities_;
    std::deque<Removal> removals_;  // of one directory, not sent yet

    std::unique_ptr<ExportContact> contact_;
    ScopedTimer farewell_timer_;
};

// A call whose results make a reply; one that ends well without any (see Call::done_before) gives an empty one.
template <class Reply, class Put, class Read>
std::unique_ptr<Call> ExportVolume::make(std::string_view name, Completion<Reply> done, Put put, Read read) {
    auto call = new_call(name);
    auto reply = std::make_shared<Reply>();
    call->put = std::move(put);
    call->read = [reply, read = std::move(read)](Results &results, const rpc::Request &request) {
        *reply = {};
        return read(results, request, *reply);
    };
    call->done = [reply, done = std::move(done)](Status status) {
        if (status.ok())
            done(std::move(*reply));
        else
            done(std::move(status));
    };
    return call;
}

}  // namespace nfstdm::nfs4
