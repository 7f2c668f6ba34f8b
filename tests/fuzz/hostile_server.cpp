// SPDX-License-Identifier: Apache-2.0
// The storage interface on a server whose every reply is made of the input: the calls come from the first eight bytes,
// the replies from the rest, one behind the other as they would stand on the wire behind their RPC header. Where the
// input ends, or is no reply, the operation fails.
//
// What holds of every call stands in storage_calls.h.
#include <cerrno>
#include <cstring>

#include "nfstdm/nfs3/fields.h"
#include "nfstdm/nfs3/replies.h"
#include "nfstdm/nfs3/status_table.h"
#include "nfstdm/tdm/volume_factory.h"
#include "nfstdm/volume/file_by_handle.h"
#include "nfstdm/volume/sizes.h"
#include "nfstdm/xdr/reader.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/storage_calls.h"

namespace {

using namespace nfstdm;
using xdr::Reader;

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
    std::unique_ptr<VolumeFile> open(const FileHandle &file, Access) override {
        return std::make_unique<FileByHandle<ScriptedVolume>>(*this, file);
    }
    void read(const FileHandle &, uint64_t, std::span<std::byte> buffer, Completion<ReadReply> done) {
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
    void write(const FileHandle &, uint64_t, std::span<const std::byte> data, Stability, Completion<WriteReply> done) {
        reply<WriteReply>(std::move(done), [sent = data.size()](Reader &reader, WriteReply &result) {
            return nfs3::get_write(reader, result) && result.count <= sent && (result.count > 0 || sent == 0);
        });
    }
    void commit(const FileHandle &, Completion<CommitReply> done) { reply(std::move(done), nfs3::get_commit); }
    void create(const FileHandle &, std::string_view, const SetAttributes &, Completion<CreatedFile> done) override {
        const auto made = [done = std::move(done)](const Result<CreateReply> &result) {
            if (result.ok()) return done(CreatedFile{result.value(), nullptr});
            done(result.status());
        };
        reply<CreateReply>(made, nfs3::get_made);
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

}  // namespace

VolumeFactory nfstdm::protocol_volume_factory(const Trace &) {
    return [](EventLoop &loop, const ServerConfig &, const ServerExport &) -> std::unique_ptr<Volume> {
        return std::make_unique<ScriptedVolume>(loop);
    };
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    fuzz::Input input(data, size);
    const fuzz::Bytes calls = input.bytes(fuzz::kStorageCalls);
    script = input.rest();
    fuzz::make_calls(calls);
    return 0;
}
