// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/nfs3_volume.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <vector>

#include "nfstdm/base/record.h"
#include "nfstdm/nfs3/arguments.h"
#include "nfstdm/nfs3/constants.h"
#include "nfstdm/nfs3/contact.h"
#include "nfstdm/nfs3/mount.h"
#include "nfstdm/nfs3/operations.h"
#include "nfstdm/nfs3/replies.h"
#include "nfstdm/remote/export.h"
#include "nfstdm/remote/security.h"
#include "nfstdm/remote/server.h"
#include "nfstdm/volume/file_by_handle.h"
#include "nfstdm/volume/sizes.h"

namespace nfstdm::nfs3 {

namespace {

using std::chrono::seconds;

// UMNT is a courtesy: the server's list of clients is informational, and nobody waits for more than its sending.
constexpr rpc::Duration kUnmountLimit = seconds(2);
// For a server that names no size at all; every server takes this much (RFC 1094's maximum).
constexpr uint32_t kTransferDefault = 8192;
// With less in one READ or WRITE than this every byte costs many of overhead, here and on the wire.
constexpr uint32_t kTransferMinimum = 1024;

template <class Reply>
using Read = bool (*)(xdr::Reader &, Reply &);

// An operation whose results are read by one function.
template <class Reply>
class Typed : public Operation {
  public:
    Typed(EventLoop &loop, const ProcedureRow &row, Read<Reply> read_results, Completion<Reply> done)
        : Operation(loop, row), read_(read_results), done_(std::move(done)) {}

    bool read(xdr::Reader &reader, const rpc::Request &) override { return read_(reader, reply_); }
    void complete(Status status) override {
        if (status.ok())
            done_(std::move(reply_));
        else
            done_(std::move(status));
    }

  protected:
    Reply reply_{};

  private:
    Read<Reply> read_;
    Completion<Reply> done_;
};

class ReadOperation : public Typed<ReadReply> {
  public:
    ReadOperation(EventLoop &loop, Completion<ReadReply> done)
        : Typed(loop, row_of(Procedure::read), nullptr, std::move(done)) {}
    bool read(xdr::Reader &reader, const rpc::Request &request) override {
        return get_read(reader, request.landed, reply_);
    }
};

// A server can not have accepted more than it was sent, and one that accepts nothing of something would be sent it
// again for ever.
class WriteOperation : public Typed<WriteReply> {
  public:
    WriteOperation(EventLoop &loop, Completion<WriteReply> done)
        : Typed(loop, row_of(Procedure::write), nullptr, std::move(done)) {}
    bool read(xdr::Reader &reader, const rpc::Request &request) override {
        const std::size_t sent = request.data.size();
        return get_write(reader, reply_) && reply_.count <= sent && (reply_.count > 0 || sent == 0);
    }
};

class MkdirOperation : public Typed<CreateReply> {
  public:
    MkdirOperation(EventLoop &loop, Completion<CreateReply> done)
        : Typed(loop, row_of(Procedure::mkdir), get_made, std::move(done)) {}
    void found_done(EventLoop::Clock::time_point first_sent) override { reply_.maybe_made_since = first_sent; }
};

bool get_created(xdr::Reader &reader, CreatedFile &created) {
    return get_made(reader, created.reply);
}

Completion<NoReply> without_reply(DoneCompletion done) {
    return [done = std::move(done)](const Result<NoReply> &result) { done(result.status()); };
}

// What one transfer may carry, from what the server says and what this client wants.
void agree(uint32_t &maximum, uint32_t &preferred) {
    maximum = std::min(maximum == 0 ? kTransferDefault : maximum, kTransferMaximum);
    preferred = preferred == 0 ? maximum : std::min(preferred, maximum);
}

// Nobody needs a permission for FSINFO (RFC 1813 section 3.3.19): it is the way of asking that the export refuses.
Status with_what_is_wanted(const Status &failure) {
    const bool refused = failure.number() == EACCES && !failure.is(Condition::credential);
    return refused ? failure.told_as(failure.text() + remote::kMayWantAnotherTransport) : failure;
}

class Nfs3Volume : public remote::Export {
  public:
    Nfs3Volume(std::shared_ptr<remote::Server> server, ServerExport share);
    ~Nfs3Volume() override;

    void detach(DoneCompletion done) override;
    const VolumeLimits &limits() const override { return limits_; }
    std::optional<FsInfoReply> root_info() const override { return root_info_; }
    bool busy() const override;

    void getattr(const FileHandle &object, Completion<Attributes> done) override;
    void setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) override;
    void lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) override;
    void readlink(const FileHandle &link, Completion<std::string> done) override;
    void read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer, Completion<ReadReply> done);
    void write(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
               Completion<WriteReply> done);
    void commit(const FileHandle &file, Completion<CommitReply> done);
    std::unique_ptr<VolumeFile> open(const FileHandle &file, Access access) override;
    void create(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                Completion<CreatedFile> done) override;
    void mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
               Completion<CreateReply> done) override;
    void remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) override;
    void rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) override;
    void readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool plus,
                 Completion<DirectoryReply> done) override;
    void fsinfo(const FileHandle &object, Completion<FsInfoReply> done) override;
    void fsstat(const FileHandle &object, Completion<FsStatReply> done) override;

  private:
    // How a request differs from one that is all arguments.
    struct Extra {
        std::span<const std::byte> data;
        std::span<std::byte> landing;
        std::size_t entries_maximum = 0;     // bytes of directory entries
        std::optional<rpc::Duration> limit;  // of the first contact, instead of io_timeout
    };

    template <class PutArguments>
    void start(Procedure procedure, std::unique_ptr<Operation> operation, const Extra &extra, PutArguments &&put);
    template <class Reply, class PutArguments>
    void start(Procedure procedure, Read<Reply> read_results, Completion<Reply> done, PutArguments &&put) {
        start(procedure, std::make_unique<Typed<Reply>>(loop(), row_of(procedure), read_results, std::move(done)), {},
              std::forward<PutArguments>(put));
    }
    void refuse(std::unique_ptr<Operation> operation, const Status &why);

    Status choose_security(const std::vector<uint32_t> &offered);

    void contact() override;
    void contacted(Result<Contacted> result);
    void ask_limits(const FileHandle &root);
    void limits_known(const FileHandle &root, const FsInfoReply &info);
    void contact_failed(const Status &why);
    void let_go() override;
    void end_all(const Status &why) override;

    const std::shared_ptr<remote::Server> server_;
    VolumeLimits limits_;
    std::optional<FsInfoReply> root_info_;
    uint32_t directory_bytes_ = kDirectoryBytes;
    std::shared_ptr<rpc::Authenticator> authenticator_;
    std::shared_ptr<rpc::Authenticator> mount_authenticator_;
    rpc::Client *client_ = nullptr;  // the server's, while in use here
    uint16_t mount_port_ = 0;

    std::unique_ptr<Contact> contact_;
    std::unique_ptr<rpc::Client> unmounter_;
    Operations operations_;
};

Nfs3Volume::Nfs3Volume(std::shared_ptr<remote::Server> server, ServerExport share)
    : Export(*server, std::move(share)), server_(std::move(server)), operations_(server_->timing(), server_->trace()) {}

Nfs3Volume::~Nfs3Volume() {
    close();
}

// --- attach and detach

void Nfs3Volume::contact() {
    // What tslnfstab asks for is there, or the server is not asked at all.
    if (!wanted().empty())
        if (const auto there = server_->authenticator(wanted()); !there.ok())
            return not_attached(in_context(there.status()));
    auto authenticator = server_->mount_authenticator(wanted());
    if (!authenticator.ok()) return not_attached(in_context(authenticator.status()));
    if (share().export_path.size() > mount3::kPathMaximum)
        return not_attached(in_context({ENAMETOOLONG, "the export's path is too long"}));
    mount_authenticator_ = std::move(authenticator.value());
    const auto deadline = EventLoop::Clock::now() + server_->contact_limit();
    contact_ = std::make_unique<Contact>(*server_, share().export_path, mount_authenticator_, deadline,
                                         [this](Result<Contacted> result) { contacted(std::move(result)); });
    contact_->start();
}

void Nfs3Volume::contact_failed(const Status &why) {
    if (why.number() != ETIMEDOUT) return not_attached(why);
    const std::string limit = std::to_string(server_->contact_limit().count());
    not_attached(why.told_as(why.text() + "; mnt_timeout is " + limit));
}

void Nfs3Volume::contacted(Result<Contacted> result) {
    if (!result.ok()) return contact_failed(result.status());
    const Contacted &found = result.value();
    if (Status status = choose_security(found.export_reply.flavours); !status.ok())
        return not_attached(in_context(status));
    mount_port_ = found.ports.mount;
    client_ = &server_->use_nfs(found.ports.nfs);
    operations_.use(client_);
    ask_limits(found.export_reply.root);
}

Status Nfs3Volume::choose_security(const std::vector<uint32_t> &offered) {
    const auto security = remote::choose_security(wanted(), offered, share().export_path);
    if (!security.ok()) return security.status();
    auto authenticator = server_->authenticator(security.value());
    if (authenticator.ok()) authenticator_ = std::move(authenticator.value());
    return authenticator.status();
}

void Nfs3Volume::ask_limits(const FileHandle &root) {
    auto done = [this, root](const Result<FsInfoReply> &info) {
        if (!info.ok()) return contact_failed(with_what_is_wanted(info.status()));
        limits_known(root, info.value());
    };
    Extra extra;
    extra.limit = contact_->left();
    start(Procedure::fsinfo,
          std::make_unique<Typed<FsInfoReply>>(loop(), row_of(Procedure::fsinfo), get_fsinfo, std::move(done)), extra,
          [&root](xdr::Writer &writer) { put_object(writer, root); });
}

void Nfs3Volume::limits_known(const FileHandle &root, const FsInfoReply &info) {
    root_info_ = info;
    limits_ = info.limits;
    agree(limits_.read_maximum, limits_.read_preferred);
    agree(limits_.write_maximum, limits_.write_preferred);
    if (const uint32_t least = std::min(limits_.read_maximum, limits_.write_maximum); least < kTransferMinimum)
        return not_attached(in_context({EPROTO, "FSINFO: the server takes no more than " + std::to_string(least) +
                                                    " bytes in one READ or WRITE, at least " +
                                                    std::to_string(kTransferMinimum) + " are needed"}));
    directory_bytes_ = std::clamp(limits_.readdir_preferred, kDirectoryBytes, kTransferMaximum);
    contact_.reset();
    attached(root);
}

void Nfs3Volume::let_go() {
    contact_.reset();
    if (std::exchange(client_, nullptr) == nullptr) return;
    operations_.use(nullptr);
    server_->release_nfs();
}

void Nfs3Volume::end_all(const Status &why) {
    contact_.reset();
    unmounter_.reset();
    operations_.fail_all(why);
    let_go();
}

void Nfs3Volume::detach(DoneCompletion done) {
    const bool reachable = is_attached() && client_->answering();
    if (!reachable) return leave_at_once(std::move(done));
    close();
    leave(std::move(done));
    unmounter_ = server_->new_contact_client({mount3::kProgram, mount3::kVersion}, mount_port_);
    mount3::unmount(*unmounter_, {this, mount_authenticator_, kUnmountLimit}, share().export_path,
                    [this](const Status &) { left(); });
}

bool Nfs3Volume::busy() const {
    return client_ != nullptr && client_->busy();
}

// --- operations

void Nfs3Volume::refuse(std::unique_ptr<Operation> operation, const Status &why) {
    std::shared_ptr<Operation> kept = std::move(operation);
    loop().soon([kept, why] { kept->complete(why); });
}

template <class PutArguments>
void Nfs3Volume::start(Procedure procedure, std::unique_ptr<Operation> operation, const Extra &extra,
                       PutArguments &&put) {
    const std::string name(row_of(procedure).name);
    if (client_ == nullptr) return refuse(std::move(operation), not_attached_for(name));
    xdr::Writer writer;
    put(writer);
    if (!writer.ok())
        return refuse(std::move(operation), in_context({ENAMETOOLONG, name + ": a name is longer than 255 bytes"}));
    auto request = std::make_unique<rpc::Request>();
    request->procedure = static_cast<uint32_t>(procedure);
    request->authenticator = authenticator_;
    request->arguments = writer.take();
    request->data = extra.data;
    request->landing = extra.landing;
    if (procedure == Procedure::read) request->data_position = read_data_position;
    request->results_maximum = extra.entries_maximum;
    request->limit = extra.limit.value_or(seconds(server_->config().io_timeout_seconds));
    request->needs_contact = extra.limit.has_value();
    operations_.start(std::move(operation), std::move(request));
}

void Nfs3Volume::getattr(const FileHandle &object, Completion<Attributes> done) {
    start(Procedure::getattr, get_getattr, std::move(done), [&](xdr::Writer &writer) { put_object(writer, object); });
}

void Nfs3Volume::setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) {
    start(Procedure::setattr, get_changed, without_reply(std::move(done)),
          [&](xdr::Writer &writer) { put_setattr(writer, object, set); });
}

void Nfs3Volume::lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) {
    start(Procedure::lookup, get_lookup, std::move(done),
          [&](xdr::Writer &writer) { put_entry(writer, directory, name); });
}

void Nfs3Volume::readlink(const FileHandle &link, Completion<std::string> done) {
    start(Procedure::readlink, get_readlink, std::move(done), [&](xdr::Writer &writer) { put_object(writer, link); });
}

void Nfs3Volume::read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                      Completion<ReadReply> done) {
    assert(buffer.size() <= kTransferMaximum);
    Extra extra;
    extra.landing = buffer;
    start(Procedure::read, std::make_unique<ReadOperation>(loop(), std::move(done)), extra,
          [&](xdr::Writer &writer) { put_read(writer, file, offset, static_cast<uint32_t>(buffer.size())); });
}

void Nfs3Volume::write(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
                       Completion<WriteReply> done) {
    assert(data.size() <= kTransferMaximum);
    Extra extra;
    extra.data = data;
    start(Procedure::write, std::make_unique<WriteOperation>(loop(), std::move(done)), extra,
          [&](xdr::Writer &writer) { put_write(writer, file, offset, static_cast<uint32_t>(data.size()), stability); });
}

void Nfs3Volume::commit(const FileHandle &file, Completion<CommitReply> done) {
    start(Procedure::commit, get_commit, std::move(done), [&](xdr::Writer &writer) { put_commit(writer, file); });
}

// The server keeps nothing for an open file.
std::unique_ptr<VolumeFile> Nfs3Volume::open(const FileHandle &file, Access /*access*/) {
    return std::make_unique<FileByHandle<Nfs3Volume>>(*this, file);
}

void Nfs3Volume::create(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                        Completion<CreatedFile> done) {
    start(Procedure::create, get_created, std::move(done),
          [&](xdr::Writer &writer) { put_create(writer, directory, name, set); });
}

void Nfs3Volume::mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
                       Completion<CreateReply> done) {
    start(Procedure::mkdir, std::make_unique<MkdirOperation>(loop(), std::move(done)), {},
          [&](xdr::Writer &writer) { put_mkdir(writer, directory, name, mode); });
}

void Nfs3Volume::remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) {
    start(Procedure::remove, get_removed, std::move(done),
          [&](xdr::Writer &writer) { put_entry(writer, directory, name); });
}

void Nfs3Volume::rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) {
    start(Procedure::rmdir, get_removed, std::move(done),
          [&](xdr::Writer &writer) { put_entry(writer, directory, name); });
}

void Nfs3Volume::readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool plus,
                         Completion<DirectoryReply> done) {
    const Procedure procedure = plus ? Procedure::readdirplus : Procedure::readdir;
    Extra extra;
    extra.entries_maximum = directory_bytes_;
    start(procedure,
          std::make_unique<Typed<DirectoryReply>>(loop(), row_of(procedure), plus ? get_readdirplus : get_readdir,
                                                  std::move(done)),
          extra, [&](xdr::Writer &writer) {
              if (plus)
                  put_readdirplus(writer, directory, cookie, verifier, directory_bytes_, directory_bytes_);
              else
                  put_readdir(writer, directory, cookie, verifier, directory_bytes_);
          });
}

void Nfs3Volume::fsinfo(const FileHandle &object, Completion<FsInfoReply> done) {
    start(Procedure::fsinfo, get_fsinfo, std::move(done), [&](xdr::Writer &writer) { put_object(writer, object); });
}

void Nfs3Volume::fsstat(const FileHandle &object, Completion<FsStatReply> done) {
    start(Procedure::fsstat, get_fsstat, std::move(done), [&](xdr::Writer &writer) { put_object(writer, object); });
}

}  // namespace

std::unique_ptr<Volume> Exports::open(const ServerConfig &config, const ServerExport &share) {
    auto &known = servers_[{config.name, config.line}];
    auto server = known.lock();
    if (server == nullptr) {
        server = std::make_shared<remote::Server>(loop_, config, trace_, timing_);
        known = server;
    }
    return std::make_unique<Nfs3Volume>(std::move(server), share);
}

std::unique_ptr<Volume> open_volume(EventLoop &loop, const ServerConfig &config, const ServerExport &share,
                                    const Trace &trace, const rpc::Timing &timing) {
    return Exports(loop, trace, timing).open(config, share);
}

}  // namespace nfstdm::nfs3
