// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/nfs4_volume.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <optional>
#include <vector>

#include "nfstdm/base/scoped.h"
#include "nfstdm/nfs4/arguments.h"
#include "nfstdm/nfs4/export_contact.h"
#include "nfstdm/nfs4/opens.h"
#include "nfstdm/nfs4/replies.h"
#include "nfstdm/nfs4/session.h"
#include "nfstdm/nfs4/status_table.h"
#include "nfstdm/remote/security.h"
#include "nfstdm/remote/server.h"

namespace nfstdm::nfs4 {

// A server and the session with it, which its exports share.
class SharedServer {
  public:
    SharedServer(EventLoop &loop, const ServerConfig &config, const Trace &trace, const rpc::Timing &timing,
                 uint32_t minor_version)
        : server_(loop, config, trace, timing), session_(server_, minor_version) {}

    remote::Server &server() { return server_; }
    Session &session() { return session_; }

  private:
    remote::Server server_;
    Session session_;
};

namespace {

using std::chrono::seconds;

// What one transfer carries at most, as for NFSv3.
constexpr uint32_t kTransferMaximum = uint32_t{1} << 20;
constexpr uint32_t kTransferMinimum = 4096;
constexpr uint32_t kDirectoryBytes = uint32_t{256} << 10;
constexpr uint32_t kMultiple = 4096;  // what file systems like; NFSv4 servers do not tell
// What stands around the data of a WRITE or a READ: heads of the record and the call with its credential, and the
// operations in front.
constexpr uint32_t kAroundData = 1024;
// Data that is copied into a request so that more can be asked behind it.
constexpr std::size_t kSmallWrite = std::size_t{64} << 10;
// What is still open when the export is left is closed as a courtesy: nobody waits for it long.
constexpr rpc::Duration kFarewellLimit = seconds(2);
// How often an operation may meet a server that has lost its state.
constexpr unsigned kRescuesMaximum = 8;

bool state_is_lost(NfsStatus status) {
    switch (status) {
        case NfsStatus::bad_stateid:
        case NfsStatus::stale_stateid:
        case NfsStatus::old_stateid:
        case NfsStatus::expired:
        case NfsStatus::admin_revoked:
            return true;
        default:
            return false;
    }
}

VolumeLimits limits_from(const AttributeValues &values, const ChannelSizes &sizes) {
    const auto agree = [](uint64_t server, uint32_t channel) {
        const uint64_t fits = channel > kAroundData + kTransferMinimum ? channel - kAroundData : kTransferMinimum;
        const uint64_t wanted = std::min<uint64_t>(server == 0 ? kTransferMaximum : server, kTransferMaximum);
        const auto agreed = static_cast<uint32_t>(std::min(wanted, fits));
        return agreed > kMultiple ? agreed / kMultiple * kMultiple : agreed;
    };
    VolumeLimits limits;
    limits.read_maximum = limits.read_preferred = agree(values.maxread, sizes.response_maximum);
    limits.write_maximum = limits.write_preferred = agree(values.maxwrite, sizes.request_maximum);
    limits.read_multiple = limits.write_multiple = kMultiple;
    limits.readdir_preferred = std::min(kDirectoryBytes, limits.read_maximum);
    limits.file_size_maximum = values.maxfilesize;
    return limits;
}

// Handle and attributes of the current object: what every way to an object ends with.
void put_object(Compound &compound) {
    put_plain(compound, Op::getfh);
    put_getattr(compound, object_attributes());
}

bool get_object(Results &results, FileHandle &handle, std::optional<Attributes> &attributes) {
    AttributeValues values;
    if (!results.next(Op::getfh) || !get_handle(results.reader(), handle) || !results.next(Op::getattr) ||
        !get_attributes(results.reader(), values))
        return false;
    attributes = values.attributes();
    return true;
}

struct Nothing {};

class Nfs4Volume : public Volume {
  public:
    Nfs4Volume(std::shared_ptr<SharedServer> server, ServerExport share);
    ~Nfs4Volume() override;

    void attach(Completion<FileHandle> done) override;
    void detach(DoneCompletion done) override;
    const VolumeLimits &limits() const override { return limits_; }
    bool busy() const override { return session_.busy(); }

    void getattr(const FileHandle &object, Completion<Attributes> done) override;
    void setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) override;
    void lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) override;
    std::size_t path_components_maximum() const override;
    void lookup_path(const FileHandle &directory, const std::vector<std::string> &names,
                     Completion<PathReply> done) override;
    void readlink(const FileHandle &link, Completion<std::string> done) override;
    void read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
              Completion<ReadReply> done) override;
    void write(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
               Completion<WriteReply> done) override;
    void commit(const FileHandle &file, Completion<CommitReply> done) override;
    void release(const FileHandle &file) override {
        if (state_ == State::attached) opens_.close(file);
    }
    void create(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                Completion<CreateReply> done) override;
    void mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
               Completion<CreateReply> done) override;
    void remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) override;
    void rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) override;
    void readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool plus,
                 Completion<DirectoryReply> done) override;
    void fsinfo(const FileHandle &object, Completion<FsInfoReply> done) override;
    void fsstat(const FileHandle &object, Completion<FsStatReply> done) override;

  private:
    enum class State : uint8_t { detached, attaching, attached };

    std::unique_ptr<Call> new_call(std::string_view name);
    template <class Reply, class Put, class Read>
    std::unique_ptr<Call> make(std::string_view name, Completion<Reply> done, Put put, Read read);
    template <class Reply, class Put, class Read>
    void start(std::string_view name, Completion<Reply> done, Put put, Read read) {
        send(make<Reply>(name, std::move(done), std::move(put), std::move(read)));
    }
    void send(std::unique_ptr<Call> call);
    void ask_where(const Status &failure, const DoneCompletion &done);
    void unlink(std::string_view name, const FileHandle &directory, std::string_view entry, bool is_directory,
                Completion<DirectoryChange> done);

    void read_whole(const FileHandle &file, std::span<std::byte> buffer, Completion<ReadReply> done);
    void read_open(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer, Completion<ReadReply> done);
    void write_open(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
                    Completion<WriteReply> done);
    void write_last(const FileHandle &file, uint64_t offset, std::span<const std::byte> data,
                    const Completion<WriteReply> &done);
    void with_state(Call &call, const FileHandle &file, uint32_t access, std::shared_ptr<StateId> used);

    EventLoop &loop() const { return server_->server().loop(); }
    const std::string &wanted() const { return remote::wanted_security(server_->server().config(), share_); }
    Status use_security(const std::string &security);
    Status in_context(const Status &status) const;

    void begin_contact();
    void find_export();
    void find_with_another(const std::vector<uint32_t> &offered);
    void contacted(Result<FoundExport> result);
    void attach_ended(Status status);
    void leave();
    void close(const Status &why);
    void detached();

    const std::shared_ptr<SharedServer> server_;
    Session &session_;
    const ServerExport share_;
    State state_ = State::detached;
    bool joined_ = false;  // a user of the session
    FileHandle root_;
    VolumeLimits limits_;
    std::string security_;
    std::shared_ptr<rpc::Authenticator> authenticator_;
    Opens opens_;

    std::vector<Completion<FileHandle>> attaching_;  // who waits for the attach under way
    std::unique_ptr<ExportContact> contact_;
    DoneCompletion detaching_;  // who waits for the detach under way
    ScopedTimer farewell_timer_;
    Lifeline life_;
};

Nfs4Volume::Nfs4Volume(std::shared_ptr<SharedServer> server, ServerExport share)
    : server_(std::move(server)),
      session_(server_->session()),
      share_(std::move(share)),
      opens_(session_, [this](std::string_view name) { return new_call(name); }),
      farewell_timer_(server_->server().loop()) {}

Nfs4Volume::~Nfs4Volume() {
    close(in_context({ECANCELED, "the export is no longer used"}));
}

Status Nfs4Volume::in_context(const Status &status) const {
    return status.in("server " + server_->server().name());
}

// --- attach and detach

void Nfs4Volume::attach(Completion<FileHandle> done) {
    if (state_ == State::attached) {
        loop().soon([done = std::move(done), root = root_] { done(root); });
        return;
    }
    attaching_.push_back(std::move(done));
    if (state_ == State::attaching) return;
    state_ = State::attaching;
    life_.soon(loop(), [this] { begin_contact(); });
}

void Nfs4Volume::begin_contact() {
    if (state_ != State::attaching) return;
    const remote::Server &server = server_->server();
    if (!server.problem().ok()) return attach_ended(server.problem());
    if (Status status = use_security(wanted().empty() ? "sys" : wanted()); !status.ok())
        return attach_ended(in_context(status));
    session_.add_user(opens_);
    joined_ = true;
    find_export();
}

Status Nfs4Volume::use_security(const std::string &security) {
    auto authenticator = server_->server().authenticator(security);
    if (authenticator.ok()) authenticator_ = std::move(authenticator.value());
    security_ = security;
    return authenticator.status();
}

void Nfs4Volume::find_export() {
    const auto new_contact_call = [this](std::string_view name) {
        auto call = new_call(name);
        call->needs_contact = true;
        call->limit = server_->server().contact_limit();
        return call;
    };
    contact_ = std::make_unique<ExportContact>(
        share_.export_path, new_contact_call, [this](std::unique_ptr<Call> call) { session_.start(std::move(call)); },
        [this](Result<FoundExport> result) { contacted(std::move(result)); });
    contact_->begin();
}

// The server has said what it wants instead. One more question settles it.
void Nfs4Volume::find_with_another(const std::vector<uint32_t> &offered) {
    const auto other = remote::choose_security(wanted(), offered, share_.export_path);
    if (!other.ok()) return attach_ended(in_context(other.status()));
    if (other.value() == security_)
        return attach_ended(in_context({EACCES, "the server offers security " + security_ + " and refuses it"}));
    if (Status status = use_security(other.value()); !status.ok()) return attach_ended(in_context(status));
    find_export();
}

void Nfs4Volume::contacted(Result<FoundExport> result) {
    if (!result.ok() && !contact_->offered().empty()) {
        const auto offered = contact_->offered();
        return find_with_another(offered);
    }
    if (!result.ok()) return attach_ended(result.status());
    root_ = result.value().root;
    limits_ = limits_from(result.value().values, session_.sizes());
    attach_ended({});
}

// The last step of every attempt. A waiter may destroy the volume.
void Nfs4Volume::attach_ended(Status status) {
    contact_.reset();
    state_ = status.ok() ? State::attached : State::detached;
    if (!status.ok()) leave();
    server_->server().trace().write(TraceLevel::notice, TraceComponent::mount, [&] {
        return "server " + server_->server().name() + ": export " + share_.export_path +
               (status.ok() ? ": attached with NFSv4." + std::to_string(session_.minor_version())
                            : ": not attached: " + status.text());
    });
    const FileHandle root = root_;
    for (const auto &done : std::exchange(attaching_, {})) {
        if (status.ok())
            done(root);
        else
            done(status);
    }
}

// Without a word to anyone who waits.
void Nfs4Volume::leave() {
    if (std::exchange(joined_, false)) session_.remove_user(opens_, [](const Status &) {});
}

// Ends everything under way with a failure and lets go of the server.
void Nfs4Volume::close(const Status &why) {
    contact_.reset();
    const bool attaching = state_ == State::attaching;
    state_ = State::detached;
    farewell_timer_.cancel();
    session_.fail_all(this, why);
    session_.fail_all(&opens_, why);
    opens_.clear();
    leave();
    if (attaching && !attaching_.empty()) attach_ended(why);
    if (const auto done = std::exchange(detaching_, nullptr)) done(why);
}

// What is under way ends at once; what is open is closed in order, and then the server is told that this was all.
void Nfs4Volume::detach(DoneCompletion done) {
    const Status why = in_context({ECANCELED, "the export is no longer used"});
    if (state_ != State::attached) {
        close(why);
        loop().soon([done = std::move(done)] { done({}); });
        return;
    }
    state_ = State::detached;
    session_.fail_all(this, why);
    detaching_ = std::move(done);
    farewell_timer_.after(kFarewellLimit, [this, why] { session_.fail_all(&opens_, why); });
    life_.soon(loop(), [this] {
        opens_.close_all([this](const Status &) {
            farewell_timer_.cancel();
            if (!std::exchange(joined_, false)) return;
            session_.remove_user(opens_, [life = life_.watch(), this](const Status &) {
                if (!life.expired()) detached();
            });
        });
    });
}

void Nfs4Volume::detached() {
    const auto done = std::exchange(detaching_, nullptr);
    if (done) done({});
}

// --- calls

std::unique_ptr<Call> Nfs4Volume::new_call(std::string_view name) {
    auto call = std::make_unique<Call>();
    call->name = name;
    call->authenticator = authenticator_;
    call->limit = seconds(server_->server().config().io_timeout_seconds);
    call->owner = this;
    return call;
}

// A call whose results make a reply; one that ends well without any (see Call::done_before) gives an empty one.
template <class Reply, class Put, class Read>
std::unique_ptr<Call> Nfs4Volume::make(std::string_view name, Completion<Reply> done, Put put, Read read) {
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

void Nfs4Volume::send(std::unique_ptr<Call> call) {
    call->done = [this, done = std::move(call->done)](Status status) {
        if (status.number() == EREMOTE && state_ == State::attached) return ask_where(status, done);
        done(std::move(status));
    };
    if (state_ == State::attached) return session_.start(std::move(call));
    const Status why = in_context({ENOTCONN, std::string(call->name) + ": the export is not attached"});
    std::shared_ptr<Call> kept = std::move(call);
    loop().soon([kept, why] { kept->done(why); });
}

// The file system is on another server now, and the one that had it may tell which.
void Nfs4Volume::ask_where(const Status &failure, const DoneCompletion &done) {
    auto call = make<AttributeValues>(
        "GETATTR",
        [failure, done](const Result<AttributeValues> &values) {
            done(values.ok() ? with_locations(failure, values.value()) : failure);
        },
        [this](Compound &compound) {
            put_putfh(compound, root_);
            put_getattr(compound, {Attribute::fs_locations});
            compound.expect(kLocationsMaximum);
        },
        [](Results &results, const rpc::Request &, AttributeValues &values) {
            return results.next(Op::putfh) && results.next(Op::getattr) && get_attributes(results.reader(), values);
        });
    session_.start(std::move(call));
}

Completion<Nothing> without_reply(DoneCompletion done) {
    return [done = std::move(done)](const Result<Nothing> &result) { done(result.status()); };
}

// A call that presents the state of an open file: when the server has lost it, the file is opened again and the call
// made once more.
void Nfs4Volume::with_state(Call &call, const FileHandle &file, uint32_t access, std::shared_ptr<StateId> used) {
    auto rescues = std::make_shared<unsigned>(0);
    call.rescue = [this, file, access, used = std::move(used), rescues](NfsStatus status,
                                                                        std::unique_ptr<Call> &pointer) {
        if (!state_is_lost(status) || ++*rescues > kRescuesMaximum) return false;
        opens_.lost(file, *used);
        std::shared_ptr<std::unique_ptr<Call>> kept = std::make_shared<std::unique_ptr<Call>>(std::move(pointer));
        opens_.use(file, access, [this, kept](const Status &opened) {
            if (opened.ok()) return session_.start(std::move(*kept));
            (*kept)->done(opened);
        });
        return true;
    };
}

// --- operations

void Nfs4Volume::getattr(const FileHandle &object, Completion<Attributes> done) {
    start<Attributes>(
        "GETATTR", std::move(done),
        [object](Compound &compound) {
            put_putfh(compound, object);
            put_getattr(compound, object_attributes());
        },
        [](Results &results, const rpc::Request &, Attributes &reply) {
            AttributeValues values;
            if (!results.next(Op::putfh) || !results.next(Op::getattr) || !get_attributes(results.reader(), values) ||
                !values.attributes())
                return false;
            reply = *values.attributes();
            return true;
        });
}

void Nfs4Volume::setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) {
    auto used = std::make_shared<StateId>();
    auto call = make<Nothing>(
        "SETATTR", without_reply(std::move(done)),
        [this, object, set, used](Compound &compound) {
            *used = opens_.state(object);
            put_putfh(compound, object);
            put_setattr(compound, *used, set);
        },
        [](Results &results, const rpc::Request &, Nothing &) {
            return results.next(Op::putfh) && results.next(Op::setattr) && get_set(results.reader());
        });
    with_state(*call, object, kShareAccessWrite, used);
    send(std::move(call));
}

void Nfs4Volume::lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) {
    start<LookupReply>(
        "LOOKUP", std::move(done),
        [directory, name = std::string(name)](Compound &compound) {
            put_putfh(compound, directory);
            put_lookup(compound, name);
            put_object(compound);
        },
        [](Results &results, const rpc::Request &, LookupReply &reply) {
            return results.next(Op::putfh) && results.next(Op::lookup) &&
                   get_object(results, reply.handle, reply.attributes);
        });
}

// As many as the server takes operations for: SEQUENCE, perhaps RECLAIM_COMPLETE, PUTFH, and three for each component.
std::size_t Nfs4Volume::path_components_maximum() const {
    constexpr uint32_t kInFront = 3;
    constexpr uint32_t kEach = 3;
    return std::max(1U, (std::max(session_.sizes().operations, kInFront) - kInFront) / kEach);
}

void Nfs4Volume::lookup_path(const FileHandle &directory, const std::vector<std::string> &names,
                             Completion<PathReply> done) {
    start<PathReply>(
        "LOOKUP", std::move(done),
        [directory, names](Compound &compound) {
            put_putfh(compound, directory);
            for (const std::string &name : names) {
                put_lookup(compound, name);
                put_object(compound);
            }
        },
        [this, count = names.size()](Results &results, const rpc::Request &, PathReply &reply) {
            if (!results.next(Op::putfh)) return false;
            for (std::size_t i = 0; i < count; ++i) {
                LookupReply found;
                if (!results.next(Op::lookup)) break;
                if (!get_object(results, found.handle, found.attributes)) return false;
                reply.found.push_back(found);
            }
            // Where a lookup ends the question, what was found before it is the answer.
            const bool ended = results.failure() == NfsStatus::noent || results.failure() == NfsStatus::symlink ||
                               results.failure() == NfsStatus::notdir || results.failure() == NfsStatus::access;
            if (ended) reply.failure = in_context(to_status(results.failure()).in("LOOKUP"));
            return ended || results.failure() == NfsStatus::ok;
        });
}

void Nfs4Volume::readlink(const FileHandle &link, Completion<std::string> done) {
    start<std::string>(
        "READLINK", std::move(done),
        [link](Compound &compound) {
            put_putfh(compound, link);
            put_plain(compound, Op::readlink);
        },
        [](Results &results, const rpc::Request &, std::string &reply) {
            return results.next(Op::putfh) && results.next(Op::readlink) && get_readlink(results.reader(), reply);
        });
}

void Nfs4Volume::read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                      Completion<ReadReply> done) {
    // Less than a whole READ from the start is most likely all of the file.
    const bool whole = offset == 0 && buffer.size() < limits_.read_maximum && !opens_.knows(file);
    if (whole || state_ != State::attached) return read_whole(file, buffer, std::move(done));
    opens_.use(file, kShareAccessRead, [this, file, offset, buffer, done = std::move(done)](const Status &opened) {
        if (!opened.ok()) return done(opened);
        read_open(file, offset, buffer, done);
    });
}

// Opens, reads and closes in one question.
void Nfs4Volume::read_whole(const FileHandle &file, std::span<std::byte> buffer, Completion<ReadReply> done) {
    auto call = make<ReadReply>(
        "READ", std::move(done),
        [this, file, buffer](Compound &compound) {
            put_putfh(compound, file);
            put_open_handle(compound, session_.new_open_owner(), kShareAccessRead, Claim::file_handle);
            put_read(compound, StateId::current(), 0, static_cast<uint32_t>(buffer.size()));
            put_close(compound, StateId::current());
            compound.expect(buffer.size() + xdr::kWord);
        },
        [buffer](Results &results, const rpc::Request &, ReadReply &reply) {
            OpenReply open;
            return results.next(Op::putfh) && results.next(Op::open) && get_open(results.reader(), open) &&
                   results.next(Op::read) && get_read_into(results.reader(), buffer, reply) &&
                   results.next(Op::close) && get_close(results.reader());
        });
    call->repeatable = true;
    send(std::move(call));
}

void Nfs4Volume::read_open(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                           Completion<ReadReply> done) {
    auto used = std::make_shared<StateId>();
    auto call = make<ReadReply>(
        "READ", std::move(done),
        [this, file, offset, buffer, used](Compound &compound) {
            *used = opens_.state(file);
            put_putfh(compound, file);
            put_read(compound, *used, offset, static_cast<uint32_t>(buffer.size()));
        },
        [](Results &results, const rpc::Request &request, ReadReply &reply) {
            return results.next(Op::putfh) && results.next(Op::read) &&
                   get_read(results.reader(), request.landed, reply);
        });
    call->landing = buffer;
    with_state(*call, file, kShareAccessRead, used);
    send(std::move(call));
}

void Nfs4Volume::write(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
                       Completion<WriteReply> done) {
    if (state_ != State::attached) return write_open(file, offset, data, stability, std::move(done));
    opens_.use(file, kShareAccessWrite,
               [this, file, offset, data, stability, done = std::move(done)](const Status &opened) {
                   if (!opened.ok()) return done(opened);
                   // What is brought to stable storage by itself is mostly the end of what is written.
                   if (stability == Stability::file_sync && data.size() <= kSmallWrite)
                       return write_last(file, offset, data, done);
                   write_open(file, offset, data, stability, done);
               });
}

// A server can not have accepted more than it was sent, and one that accepts nothing of something would be sent it
// again for ever.
bool get_written(Results &results, std::size_t sent, WriteReply &reply) {
    return results.next(Op::putfh) && results.next(Op::write) && get_write(results.reader(), reply) &&
           reply.count <= sent && (reply.count > 0 || sent == 0);
}

void Nfs4Volume::write_open(const FileHandle &file, uint64_t offset, std::span<const std::byte> data,
                            Stability stability, Completion<WriteReply> done) {
    auto used = std::make_shared<StateId>();
    auto call = make<WriteReply>(
        "WRITE", std::move(done),
        [this, file, offset, data, stability, used](Compound &compound) {
            *used = opens_.state(file);
            put_putfh(compound, file);
            put_write(compound, *used, offset, static_cast<uint32_t>(data.size()), stability);
        },
        [sent = data.size()](Results &results, const rpc::Request &, WriteReply &reply) {
            return get_written(results, sent, reply);
        });
    call->data = data;
    with_state(*call, file, kShareAccessWrite, used);
    send(std::move(call));
}

// Writes, tells the size and closes in one question. Whoever writes more opens the file again.
void Nfs4Volume::write_last(const FileHandle &file, uint64_t offset, std::span<const std::byte> data,
                            const Completion<WriteReply> &done) {
    const StateId state = opens_.take(file);
    auto call = make<WriteReply>(
        "WRITE", done,
        [file, offset, data, state](Compound &compound) {
            put_putfh(compound, file);
            put_write_with(compound, state, offset, data, Stability::file_sync);
            put_getattr(compound, object_attributes());
            put_close(compound, state);
        },
        [sent = data.size()](Results &results, const rpc::Request &, WriteReply &reply) {
            AttributeValues values;
            if (!get_written(results, sent, reply) || !results.next(Op::getattr) ||
                !get_attributes(results.reader(), values))
                return false;
            reply.attributes = values.attributes();
            return results.next(Op::close) && get_close(results.reader());
        });
    call->rescue = [this, file, offset, data, done](NfsStatus status, const std::unique_ptr<Call> &) {
        if (!state_is_lost(status)) return false;
        opens_.use(file, kShareAccessWrite, [this, file, offset, data, done](const Status &opened) {
            if (!opened.ok()) return done(opened);
            write_open(file, offset, data, Stability::file_sync, done);
        });
        return true;
    };
    send(std::move(call));
}

void Nfs4Volume::commit(const FileHandle &file, Completion<CommitReply> done) {
    start<CommitReply>(
        "COMMIT", std::move(done),
        [file](Compound &compound) {
            put_putfh(compound, file);
            put_commit(compound);
        },
        [](Results &results, const rpc::Request &, CommitReply &reply) {
            return results.next(Op::putfh) && results.next(Op::commit) && get_commit(results.reader(), reply);
        });
}

void Nfs4Volume::create(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                        Completion<CreateReply> done) {
    struct Created {
        CreateReply made;
        OpenOwner owner;
        OpenReply open;
    };
    auto owner = std::make_shared<OpenOwner>();
    start<Created>(
        "CREATE",
        [this, done = std::move(done)](Result<Created> result) {
            if (!result.ok()) return done(result.status());
            const Created &created = result.value();
            if (created.made.handle)
                opens_.opened(*created.made.handle, created.owner, kShareAccessWrite, created.open.state);
            done(created.made);
        },
        [this, directory, name = std::string(name), set, owner](Compound &compound) {
            *owner = session_.new_open_owner();
            put_putfh(compound, directory);
            put_open_create(compound, *owner, kShareAccessWrite, name, set);
            put_object(compound);
        },
        [owner](Results &results, const rpc::Request &, Created &reply) {
            reply.owner = *owner;
            return results.next(Op::putfh) && results.next(Op::open) && get_open(results.reader(), reply.open) &&
                   get_object(results, reply.made.handle.emplace(), reply.made.attributes);
        });
}

void Nfs4Volume::mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
                       Completion<CreateReply> done) {
    auto met = std::make_shared<std::optional<EventLoop::Clock::time_point>>();
    auto call = make<CreateReply>(
        "MKDIR",
        [met, done = std::move(done)](Result<CreateReply> result) {
            if (result.ok()) result.value().maybe_made_since = *met;
            done(std::move(result));
        },
        [directory, name = std::string(name), mode](Compound &compound) {
            put_putfh(compound, directory);
            put_mkdir(compound, name, mode);
            put_object(compound);
        },
        [](Results &results, const rpc::Request &, CreateReply &reply) {
            return results.next(Op::putfh) && results.next(Op::create) && get_created(results.reader()) &&
                   get_object(results, reply.handle.emplace(), reply.attributes);
        });
    call->done_before = NfsStatus::exist;
    call->found_done = [met](EventLoop::Clock::time_point first_sent) { *met = first_sent; };
    send(std::move(call));
}

void Nfs4Volume::remove(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) {
    unlink("REMOVE", directory, name, false, std::move(done));
}

void Nfs4Volume::rmdir(const FileHandle &directory, std::string_view name, Completion<DirectoryChange> done) {
    unlink("RMDIR", directory, name, true, std::move(done));
}

// NFSv4 has one operation for both, which takes away whatever has the name: what it is is verified in front.
void Nfs4Volume::unlink(std::string_view name, const FileHandle &directory, std::string_view entry, bool is_directory,
                        Completion<DirectoryChange> done) {
    auto call = make<DirectoryChange>(
        name, std::move(done),
        [directory, entry = std::string(entry), is_directory](Compound &compound) {
            put_putfh(compound, directory);
            put_lookup(compound, entry);
            put_verify_directory(compound, is_directory);
            put_putfh(compound, directory);
            put_remove(compound, entry);
        },
        [is_directory](Results &results, const rpc::Request &, DirectoryChange &) {
            return results.next(Op::putfh) && results.next(Op::lookup) &&
                   results.next(is_directory ? Op::verify : Op::nverify) && results.next(Op::putfh) &&
                   results.next(Op::remove) && get_change(results.reader());
        });
    call->done_before = NfsStatus::noent;
    call->rescue = [this, is_directory](NfsStatus status, const std::unique_ptr<Call> &refused) {
        if (status != NfsStatus::same && status != NfsStatus::not_same) return false;
        const NfsStatus meant = is_directory ? NfsStatus::notdir : NfsStatus::isdir;
        refused->done(in_context(to_status(meant).in(std::string(refused->name))));
        return true;
    };
    send(std::move(call));
}

void Nfs4Volume::readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool /*plus*/,
                         Completion<DirectoryReply> done) {
    static const AttributeSet kEntryAttributes = [] {
        AttributeSet set = object_attributes();
        set.add(Attribute::rdattr_error);
        set.add(Attribute::filehandle);
        return set;
    }();
    start<DirectoryReply>(
        "READDIR", std::move(done),
        [this, directory, cookie, verifier](Compound &compound) {
            put_putfh(compound, directory);
            put_getattr(compound, object_attributes());
            put_readdir(compound, cookie, verifier, limits_.readdir_preferred, kEntryAttributes);
            compound.expect(limits_.readdir_preferred);
        },
        [](Results &results, const rpc::Request &, DirectoryReply &reply) {
            AttributeValues values;
            if (!results.next(Op::putfh) || !results.next(Op::getattr) || !get_attributes(results.reader(), values))
                return false;
            reply.directory = values.attributes();
            return results.next(Op::readdir) && get_readdir(results.reader(), reply);
        });
}

void Nfs4Volume::fsinfo(const FileHandle &object, Completion<FsInfoReply> done) {
    start<FsInfoReply>(
        "FSINFO", std::move(done),
        [object](Compound &compound) {
            put_putfh(compound, object);
            put_getattr(compound, limit_attributes());
        },
        [this](Results &results, const rpc::Request &, FsInfoReply &reply) {
            AttributeValues values;
            if (!results.next(Op::putfh) || !results.next(Op::getattr) || !get_attributes(results.reader(), values))
                return false;
            reply.attributes = values.attributes();
            reply.limits = limits_from(values, session_.sizes());
            return true;
        });
}

void Nfs4Volume::fsstat(const FileHandle &object, Completion<FsStatReply> done) {
    start<FsStatReply>(
        "FSSTAT", std::move(done),
        [object](Compound &compound) {
            put_putfh(compound, object);
            put_getattr(compound, space_attributes());
        },
        [](Results &results, const rpc::Request &, FsStatReply &reply) {
            AttributeValues values;
            if (!results.next(Op::putfh) || !results.next(Op::getattr) || !get_attributes(results.reader(), values))
                return false;
            reply.attributes = values.attributes();
            reply.total_bytes = values.space_total;
            reply.free_bytes = values.space_free;
            reply.available_bytes = values.space_avail;
            reply.total_files = values.files_total;
            reply.free_files = values.files_free;
            reply.available_files = values.files_avail;
            return true;
        });
}

}  // namespace

std::unique_ptr<Volume> VolumeFactory::open(const ServerConfig &config, const ServerExport &share,
                                            const NfsVersion &version) {
    auto &known = servers_[{config.name, config.line}];
    auto server = known.lock();
    if (server == nullptr) {
        server = std::make_shared<SharedServer>(loop_, config, trace_, timing_, version.minor);
        known = server;
        if (version.pnfs)
            trace_.write(TraceLevel::notice, TraceComponent::nfs, [&config] {
                return "server " + config.name + ": pNFS is not used, data goes through the server";
            });
    }
    return std::make_unique<Nfs4Volume>(std::move(server), share);
}

}  // namespace nfstdm::nfs4
