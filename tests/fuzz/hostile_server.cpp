// SPDX-License-Identifier: Apache-2.0
// The storage interface on a server whose every reply is made of the input: the calls come from the first eight bytes,
// the replies from the rest, one behind the other as they would stand on the wire behind their RPC header. Where the
// input ends, or is no reply, the operation fails.
//
// Every call ends, with a status of its own; texts are terminated, names of a directory are harmless and come once, and
// no byte is put behind a buffer.
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "include/tdm.h"
#include "nfstdm/nfs3/fields.h"
#include "nfstdm/nfs3/replies.h"
#include "nfstdm/nfs3/status_table.h"
#include "nfstdm/tdm/volume_factory.h"
#include "nfstdm/xdr/reader.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace nfstdm;
using fuzz::require;
using xdr::Reader;

constexpr uint32_t kTransferMaximum = 1 << 20;  // bytes, as the protocol agrees on with a server

// The replies that are still to come.
fuzz::Bytes script;

// Takes a status and, behind a good one, the results from the front of the script.
template <class Read>
Status take_reply(Read read) {
    Reader reader(script);
    uint32_t status = 0;
    const bool got = reader.get_u32(status) && (status != 0 || read(reader));
    script = got ? script.last(reader.left()) : script.subspan(std::min<std::size_t>(script.size(), xdr::kWord));
    if (!got) return {EIO, "the server's answer makes no sense"};
    return status == 0 ? Status() : nfs3::to_status(status);
}

class ScriptedVolume : public Volume {
  public:
    explicit ScriptedVolume(EventLoop &loop) : loop_(loop) {}

    void attach(Completion<FileHandle> done) override {
        FsInfoReply info;
        FileHandle root;
        const Status status = take_reply(
            [&](Reader &reader) { return nfs3::get_handle(reader, root) && nfs3::get_fsinfo(reader, info); });
        limits_ = info.limits;
        for (uint32_t *size : {&limits_.read_maximum, &limits_.write_maximum})
            *size = std::clamp<uint32_t>(*size, 1, kTransferMaximum);
        limits_.read_preferred = std::clamp<uint32_t>(limits_.read_preferred, 1, limits_.read_maximum);
        limits_.write_preferred = std::clamp<uint32_t>(limits_.write_preferred, 1, limits_.write_maximum);
        tell(std::move(done), status, root);
    }
    void detach(DoneCompletion done) override {
        loop_.soon([done = std::move(done)] { done({}); });
    }
    const VolumeLimits &limits() const override { return limits_; }
    bool busy() const override { return false; }

    void getattr(const FileHandle &, Completion<Attributes> done) override {
        reply(std::move(done), nfs3::get_getattr);
    }
    void setattr(const FileHandle &, const SetAttributes &, DoneCompletion done) override { changed(std::move(done)); }
    void lookup(const FileHandle &, std::string_view, Completion<LookupReply> done) override {
        reply(std::move(done), nfs3::get_lookup);
    }
    void readlink(const FileHandle &, Completion<std::string> done) override {
        reply(std::move(done), nfs3::get_readlink);
    }
    void read(const FileHandle &, uint64_t, std::span<std::byte> buffer, Completion<ReadReply> done) override {
        reply<ReadReply>(std::move(done), [buffer](Reader &reader, ReadReply &result) {
            Reader ahead = reader;
            std::optional<Attributes> attributes;
            uint32_t count = 0;
            if (!nfs3::get_post_attributes(ahead, attributes) || !ahead.get_u32(count) || count > buffer.size())
                return false;
            std::memset(buffer.data(), 'd', count);
            return nfs3::get_read(reader, count, result);
        });
    }
    void write(const FileHandle &, uint64_t, std::span<const std::byte> data, Stability,
               Completion<WriteReply> done) override {
        reply<WriteReply>(std::move(done), [sent = data.size()](Reader &reader, WriteReply &result) {
            return nfs3::get_write(reader, result) && result.count <= sent && (result.count > 0 || sent == 0);
        });
    }
    void commit(const FileHandle &, Completion<CommitReply> done) override { reply(std::move(done), nfs3::get_commit); }
    void create(const FileHandle &, std::string_view, const SetAttributes &, Completion<CreateReply> done) override {
        reply(std::move(done), nfs3::get_made);
    }
    void mkdir(const FileHandle &, std::string_view, uint32_t, Completion<CreateReply> done) override {
        reply(std::move(done), nfs3::get_made);
    }
    void remove(const FileHandle &, std::string_view, Completion<DirectoryChange> done) override {
        reply(std::move(done), nfs3::get_removed);
    }
    void rmdir(const FileHandle &, std::string_view, Completion<DirectoryChange> done) override {
        reply(std::move(done), nfs3::get_removed);
    }
    void readdir(const FileHandle &, uint64_t, uint64_t, bool plus, Completion<DirectoryReply> done) override {
        reply(std::move(done), plus ? nfs3::get_readdirplus : nfs3::get_readdir);
    }
    void fsinfo(const FileHandle &, Completion<FsInfoReply> done) override { reply(std::move(done), nfs3::get_fsinfo); }
    void fsstat(const FileHandle &, Completion<FsStatReply> done) override { reply(std::move(done), nfs3::get_fsstat); }

  private:
    template <class Reply>
    void tell(Completion<Reply> done, const Status &status, const Reply &result) {
        loop_.soon([done = std::move(done), status, result] {
            if (status.ok())
                done(result);
            else
                done(status);
        });
    }
    template <class Reply, class Get>
    void reply(Completion<Reply> done, Get get) {
        Reply result{};
        const Status status = take_reply([&](Reader &reader) { return get(reader, result); });
        tell(std::move(done), status, result);
    }
    void changed(DoneCompletion done) {
        nfs3::NoReply nothing;
        const Status status = take_reply([&](Reader &reader) { return nfs3::get_changed(reader, nothing); });
        loop_.soon([done = std::move(done), status] { done(status); });
    }

    EventLoop &loop_;
    VolumeLimits limits_;
};

// A home with one server, made once and removed at the end.
class Home {
  public:
    Home() {
        char name[] = "/tmp/hostile_server_XXXXXX";
        require(mkdtemp(name) != nullptr, "there is a place for a home");
        path_ = name;
        std::filesystem::create_directory(path_ / "dbs");
        std::ofstream(path_ / "dbs" / "tslnfstab") << "server: s\nexport: /e mount: /m\n";
        require(setenv("TESSEL_HOME", path_.c_str(), 1) == 0, "the home can be named");
    }
    ~Home() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Home(const Home &) = delete;
    Home &operator=(const Home &) = delete;

  private:
    std::filesystem::path path_;
};

class Session {
  public:
    Session() {
        uint32_t version = TDM_INTERFACE_VERSION, block_size = 0, extra = 0;
        void *handle = nullptr;
        require(tdm_discover(&version, &handle, text_, sizeof text_, &block_size, &extra) == 0, "discovery works");
        require(tdm_registerthread(handle, 0, 1, 0, "fuzzer", 0) == 0, "registration works");
        require(tdm_init(handle, &context_) == 0, "a session opens");
    }
    ~Session() { tdm_fini(context_); }
    Session(const Session &) = delete;
    Session &operator=(const Session &) = delete;

    void call(uint8_t number) {
        uint32_t location = 0;
        switch (number % 12) {
            case 0:
                return list("/m/d");
            case 1:
                return read_file("/m/d/f");
            case 2:
                return write_file("/m/d/n");
            case 3:
                return read_link();
            case 4:
                return attributes();
            case 5:
                static_cast<void>(tdm_mkdir(context_, "/m/d/made", &location));
                break;
            case 6:
                static_cast<void>(tdm_rmdir(context_, "/m/d/gone", &location));
                break;
            case 7:
                static_cast<void>(tdm_delete(context_, "/m/d/../f", &location));
                break;
            case 8:
                static_cast<void>(tdm_fsinfo(context_, "/m", &info_, &location));
                break;
            case 9:
                static_cast<void>(tdm_fsstat(context_, "/m/d", &stat_, &location));
                break;
            case 10:
                return set_attributes();
            case 11:
                return list("/m");
            default:
                break;
        }
        require(location <= TDM_LOCATION_LOST, "a location is one of four");
    }

  private:
    // As the utility does it: from the start, batch by batch.
    void list(const char *path) {
        constexpr std::size_t kEntries = 8;
        std::vector<TdmDirEntry> entries(kEntries);
        std::set<std::string> names;
        uint64_t position = 0;
        TdmReaddirReply reply{};
        while (reply.end_of_directory == 0) {
            uint32_t unused = 0, location = 0;
            const auto size = static_cast<uint32_t>(entries.size() * sizeof(TdmDirEntry));
            if (tdm_readdir(context_, path, entries.data(), &reply, size, position, &unused, &location) != 0) return;
            require(location != TDM_LOCATION_LOCAL, "the directory is not taken for a local one");
            require(reply.entries <= kEntries, "no more entries than there is room for");
            require(reply.entries > 0 || reply.end_of_directory != 0, "a listing goes on");
            for (uint32_t i = 0; i < reply.entries; ++i)
                examine_entry(entries[i], position + i, names);
            position += reply.entries;
        }
    }

    // Judged apart from the library's own judgement.
    static bool is_harmless(const std::string &name) {
        return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
    }

    static void examine_entry(const TdmDirEntry &entry, uint64_t position, std::set<std::string> &names) {
        require(std::memchr(entry.name, '\0', sizeof entry.name) != nullptr, "a name is terminated");
        const std::string name = entry.name;
        require(position > 1 || name == (position == 0 ? "." : ".."), "the first two entries are the dots");
        require(position <= 1 || is_harmless(name), "names are harmless");
        require(names.insert(name).second, "a name comes once");
    }

    TdmIoRequest request(uint8_t operation, uint64_t file, uint64_t offset, std::span<std::byte> data) const {
        TdmIoRequest made{};
        made.operation = operation;
        made.flags = TDM_IO_FLAGS;
        made.file = file;
        made.offset = offset;
        made.buffer = data.data();
        made.count = static_cast<uint32_t>(data.size());
        return made;
    }
    uint32_t transfer(uint8_t operation, uint64_t file, uint64_t offset, std::span<std::byte> data) {
        TdmIoRequest one = request(operation, file, offset, data);
        TdmIoRequest *list[] = {&one};
        uint32_t count = 0;
        const uint32_t refused = tdm_io(context_, list, 1, nullptr, 0, nullptr, 0, 0, 0, &count);
        if (refused != 0) return refused;
        const uint32_t status = tdm_io(context_, nullptr, 0, nullptr, 0, list, 1, 0, TDM_WAIT_FOREVER, &count);
        require(count == 1, "a request that was accepted completes");
        require(status == one.status, "a failed request fails the call that collects it");
        return status;
    }

    void read_file(const char *path) {
        uint32_t code = 0;
        TdmFileInfo file{};
        if (tdm_identify(context_, path, 0, 2, &code, text_, sizeof text_, &file, 0) != 0) return;
        require(code == TDM_IDENTIFIED_REMOTE, "the file is not taken for a local one");
        std::vector<std::byte> data(5000);
        const uint64_t size = file.size;
        for (const uint64_t offset : {uint64_t{0}, uint64_t{5000}, size - 100, size, size + 1, ~uint64_t{0} - 5000})
            static_cast<void>(transfer(TDM_IO_READ, file.file, offset, data));
        static_cast<void>(tdm_unidentify(context_, file.file));
    }

    void write_file(const char *path) {
        TdmFileInfo file{};
        if (tdm_create(context_, path, 0, 2, 2, text_, sizeof text_, &file) != 0) return;
        std::vector<std::byte> data(3000, std::byte{'w'});
        for (const uint64_t offset : {uint64_t{0}, uint64_t{3000}, uint64_t{1000}, ~uint64_t{0} - 3000})
            static_cast<void>(transfer(TDM_IO_WRITE, file.file, offset, data));
        static_cast<void>(transfer(TDM_IO_READ, file.file, 0, data));
        static_cast<void>(tdm_resize(context_, file.file, 1234));
        static_cast<void>(tdm_reidentify(context_, file.file, 0, &file));
        static_cast<void>(tdm_commit(context_, file.file));
        static_cast<void>(tdm_unidentify(context_, file.file));
    }

    void read_link() {
        char target[TDM_TEXT_SIZE];
        std::memset(target, 'x', sizeof target);
        uint32_t location = 0;
        if (tdm_readlink(context_, "/m/l", target, &location) != 0) return;
        require(std::memchr(target, '\0', sizeof target) != nullptr, "a target is terminated");
    }

    void attributes() {
        TdmAttributes found{};
        uint32_t location = 0;
        if (tdm_getattr(context_, "/m/d/f", &found, &location) != 0) return;
        require(found.type >= 1 && found.type <= 7, "a type is one of seven");
        require(found.permissions <= 07777, "permissions are twelve bits");
    }

    void set_attributes() {
        const TdmSetAttributes set{TDM_SET_PERMISSIONS, {}, 0640};
        uint32_t location = 0;
        static_cast<void>(tdm_setattr(context_, "/m/d/f", &set, &location));
    }

    void *context_ = nullptr;
    char text_[TDM_TEXT_SIZE] = {};
    TdmFsInfo info_{};
    TdmFsStat stat_{};
};

}  // namespace

VolumeFactory nfstdm::protocol_volume_factory(const Trace &) {
    return [](EventLoop &loop, const ServerConfig &, const ServerExport &) -> std::unique_ptr<Volume> {
        return std::make_unique<ScriptedVolume>(loop);
    };
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    static const Home home;
    fuzz::Input input(data, size);
    constexpr std::size_t kCalls = 8;
    const fuzz::Bytes calls = input.bytes(kCalls);
    script = input.rest();
    Session session;
    for (const std::byte call : calls)
        session.call(std::to_integer<uint8_t>(call));
    return 0;
}
