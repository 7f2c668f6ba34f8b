// SPDX-License-Identifier: Apache-2.0
// The NFS version 4 program, minor versions 1 and 2 (RFC 8881): one procedure, a compound of operations. An operation
// decodes its arguments, acts, and writes its results only when all went well. The operations stand in nfs4_session,
// nfs4_names, nfs4_open, nfs4_io, nfs4_attributes, nfs4_listing and nfs4_copies.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/files/shared_files.h"
#include "tools/loopnfsd/nfs4/attributes.h"
#include "tools/loopnfsd/nfs4/clients.h"
#include "tools/loopnfsd/nfs4/opens.h"
#include "tools/loopnfsd/nfs4/pseudo_root.h"
#include "tools/loopnfsd/wire/rpc.h"

namespace loopnfsd::nfs4 {

// How files are copied by the server itself, in minor version 2.
struct CopyOffer {
    bool clones = false;
    bool at_once = false;
    bool in_background = false;
};

struct Settings {
    std::chrono::seconds grace{90};
    uint32_t slots = 64;  // of a session
    CopyOffer copies;
};

// Told of every operation that is begun, for the statistics.
using OperationListener = std::function<void(std::string_view name)>;

class Nfs4Service final : public Program {
  public:
    // files must outlive the service.
    Nfs4Service(SharedFiles &files, const Settings &settings, OperationListener begun);

    uint32_t number() const override;
    uint32_t version() const override { return kVersion; }
    bool run(uint32_t procedure, Call &call) override;

    // What can happen to a client's state, on command.
    void restart();  // all is forgotten, known clients may reclaim; unstable data is lost
    void end_grace() { clients_.end_grace(); }
    void expire();          // what is open is taken away
    void forget_clients();  // and so is all else that is known of them
    void lose_sessions() { clients_.remove_sessions(); }
    std::size_t open_count() const { return opens_.count(); }

  private:
    using Bytes = std::span<const std::byte>;
    using Reader = nfstdm::xdr::Reader;
    using Writer = nfstdm::xdr::Writer;
    using Folder = SharedFiles::Folder;
    using MadeObject = SharedFiles::MadeObject;
    using Handle = std::vector<std::byte>;  // empty = none

    // One compound on its way.
    struct Compound {
        Call &call;
        Reader &in;
        Writer out{};  // the results
        uint32_t minor = 0;
        uint32_t index = 0;  // of the operation under way
        uint32_t count = 0;
        std::size_t request = 0;  // tells requests apart
        Session *session = nullptr;
        uint64_t session_client = 0;
        Slot *slot = nullptr;
        bool keep = false;                    // the reply, in the slot
        bool uncached = false;                // sent again, and the answer was none to be kept
        const KeptReply *repeated = nullptr;  // the answer there is already
        Handle current{};
        Handle saved{};
        StateId state{};  // "current" and "saved" stateids, RFC 8881 section 16.2.3.1.2
        StateId saved_state{};

        bool is_last() const { return index + 1 == count; }
        void leave_session() {
            session = nullptr;
            slot = nullptr;
        }
    };
    struct Row;
    static const Row kRows[];
    static const Row *find_row(uint32_t op);

    // What a handle stands for: an object of an export, or a directory that leads to the exports.
    struct Target {
        std::optional<Object> object;
        std::string path;  // of the latter
    };
    template <class T>
    struct Result {
        Status status = Status::ok;
        std::optional<T> value;

        Result(Status failure) : status(failure) {}         // NOLINT: a failure is a result
        Result(T all_well) : value(std::move(all_well)) {}  // NOLINT: so is a value
        bool ok() const { return value.has_value(); }
        T &operator*() { return *value; }
        T *operator->() { return &*value; }
    };

    Status run_all(Compound &compound, uint32_t &done);
    Status run_next(Compound &compound);
    Status execute(Compound &compound, uint32_t op, const Row *row);
    Status check_order(const Compound &compound, const Row &row) const;
    void finish(Compound &compound, Status status, std::string_view tag, uint32_t done);

    Result<Target> place(Compound &compound, const Handle &handle);
    Result<Object> current_object(Compound &compound);
    Result<Folder> folder(Compound &compound, const Handle &handle);
    Result<Described> describe(Compound &compound, const Bitmap &wanted);
    Described describe(const Call &call, const Object &object, const Bitmap &wanted);
    Described describe_path(std::string_view path) const;
    void enter(Compound &compound, const FileKey &key);
    static Status check_component(std::string_view name);
    static void put_change(Writer &out, const Folder &folder);

    // nfs4_session
    Status exchange_id(Compound &compound);
    Status create_session(Compound &compound);
    Status destroy_session(Compound &compound);
    Status destroy_clientid(Compound &compound);
    Status bind_connection(Compound &compound);
    Status reclaim_complete(Compound &compound);
    Status sequence(Compound &compound);
    uint32_t status_flags(uint64_t client) const;
    static bool get_session_id(Reader &in, SessionId &id);
    static bool get_channel(Reader &in, ChannelSizes &sizes);
    static void put_channel(Writer &out, const ChannelSizes &sizes);
    ChannelSizes agree(const ChannelSizes &asked) const;

    // nfs4_names
    Status putrootfh(Compound &compound);
    Status putfh(Compound &compound);
    Status getfh(Compound &compound);
    Status savefh(Compound &compound);
    Status restorefh(Compound &compound);
    Status lookup(Compound &compound);
    Status lookup_in_path(Compound &compound, const std::string &path, std::string_view name);
    Status lookupp(Compound &compound);
    Status readlink(Compound &compound);
    Status create(Compound &compound);
    Status remove(Compound &compound);
    Status rename(Compound &compound);
    Status link(Compound &compound);
    Status secinfo_no_name(Compound &compound);

    // nfs4_open
    struct OpenArguments;
    static bool get_open_arguments(Reader &in, OpenArguments &arguments, Status &status);
    Status open(Compound &compound);
    Status may_open(Compound &compound, const OpenArguments &arguments);
    Result<Object> find_or_make(Compound &compound, const OpenArguments &arguments, Writer &change);
    Result<Object> make_file(Compound &compound, const OpenArguments &arguments, Folder &folder);
    Status check_access(Compound &compound, const Object &object, const OpenArguments &arguments);
    Status close(Compound &compound);
    Status open_downgrade(Compound &compound);
    Status test_stateid(Compound &compound);
    Status free_stateid(Compound &compound);
    // Whether a stateid allows a file to be read or written; special ones do, outside grace.
    Status check_state(Compound &compound, const StateId &state, uint32_t access);
    Opens::Found find_open(Compound &compound, const StateId &state);

    // nfs4_io
    Status read(Compound &compound);
    Status write(Compound &compound);
    Status commit(Compound &compound);
    Result<OpenFile> open_file(Compound &compound, const Handle &handle, unsigned want, FileKey &key);

    // nfs4_attributes
    Status access(Compound &compound);
    Status getattr(Compound &compound);
    Status setattr(Compound &compound);
    Status set(Compound &compound, Bitmap &given);
    Status verify(Compound &compound);
    Status nverify(Compound &compound);

    // nfs4_listing
    struct ListArguments;
    class Page;
    Status readdir(Compound &compound);
    Status list_path(const ListArguments &arguments, const std::string &path, Page &page);
    Status list_folder(Compound &compound, const ListArguments &arguments, Page &page);

    // nfs4_copies
    struct CopyStates {
        StateId source;
        StateId destination;
    };
    struct RunningCopy {
        Handle source;
        Handle destination;
        uint64_t from = 0;
        uint64_t to = 0;
        uint64_t count = 0;
        uint64_t done = 0;
    };
    static bool get_copy(Reader &in, CopyStates &states, RunningCopy &copy);
    Status begin_copy(Compound &compound, const CopyStates &states, RunningCopy &copy);
    Status go_on_copying(Compound &compound, RunningCopy &copy, uint64_t most);
    bool share_blocks(Compound &compound, const RunningCopy &copy);
    void put_copied(Compound &compound, const RunningCopy &copy, const StateId *going_on) const;
    Status copy(Compound &compound);
    Status offload_status(Compound &compound);
    Status clone(Compound &compound);
    Status seek(Compound &compound);

    SharedFiles &files_;
    Settings settings_;
    OperationListener begun_;
    PseudoRoot root_;
    Clients clients_;
    Opens opens_;
    std::map<uint64_t, RunningCopy> running_copies_;  // by the number in their stateids
    uint64_t last_copy_ = 0;
};

constexpr uint32_t kLeaseSeconds = 90;

}  // namespace loopnfsd::nfs4
