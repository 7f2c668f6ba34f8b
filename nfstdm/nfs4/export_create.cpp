// SPDX-License-Identifier: Apache-2.0
// Files that are made, and are open as that, or hold what they are to hold already.
#include <utility>

#include "nfstdm/nfs4/export_volume.h"
#include "nfstdm/nfs4/objects.h"

namespace nfstdm::nfs4 {

namespace {

// SEQUENCE, perhaps RECLAIM_COMPLETE, PUTFH, OPEN, GETFH, WRITE, GETATTR, CLOSE, PUTFH and GETATTR.
constexpr uint32_t kOperationsWithContent = 10;
// Content is copied into the request, as more is asked behind it.
constexpr std::size_t kContentMaximum = std::size_t{64} << 10;
// Names, handles and all else that such a request holds.
constexpr std::size_t kAroundContent = std::size_t{4} << 10;

bool fits(std::size_t size, const ChannelSizes &sizes) {
    return size <= kContentMaximum && size + kAroundContent <= sizes.request_maximum &&
           sizes.operations >= kOperationsWithContent;
}

// What the server has made, as far as it got.
struct Made {
    CreateReply reply;
    OpenOwner owner;
    std::optional<StateId> open;
    bool has_content = false;
};

void put_content(Compound &compound, const FileHandle &directory, std::span<const std::byte> content) {
    put_plain(compound, Op::getfh);
    put_write_with(compound, StateId::current(), 0, content, Stability::file_sync);
    put_getattr(compound, object_attributes());
    put_close(compound, StateId::current());
    put_putfh(compound, directory);
    put_getattr(compound, object_attributes());
}

bool get_written_whole(Results &results, std::size_t size, bool &whole) {
    WriteReply reply;
    if (!results.next(Op::write) || !get_write(results.reader(), reply)) return false;
    whole = reply.count == size && reply.committed == Stability::file_sync;
    return true;
}

// What comes behind the OPEN may be refused: the file is made, and the caller goes on from there.
bool get_content(Results &results, const FileHandle &directory, std::size_t size, Made &made) {
    FileHandle handle;
    AttributeValues values;
    if (!results.next(Op::getfh) || !get_handle(results.reader(), handle)) return was_refused(results);
    made.reply.handle = handle;
    if (!get_written_whole(results, size, made.has_content)) return was_refused(results);
    if (!results.next(Op::getattr) || !get_attributes(results.reader(), values)) return was_refused(results);
    made.reply.attributes = values.attributes(handle);
    if (!results.next(Op::close) || !get_close(results.reader())) return was_refused(results);
    made.open.reset();
    return (results.next(Op::putfh) && get_after(results, directory, made.reply.directory)) || was_refused(results);
}

}  // namespace

void ExportVolume::create(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                          Completion<CreatedFile> done) {
    create_with(directory, name, set, {}, std::move(done));
}

void ExportVolume::create_with(const FileHandle &directory, std::string_view name, const SetAttributes &set,
                               std::span<const std::byte> content, Completion<CreatedFile> done) {
    if (!fits(content.size(), session_.sizes())) content = {};
    auto owner = std::make_shared<std::optional<OpenOwner>>();
    auto call = make<Made>(
        "CREATE",
        [this, done = std::move(done)](Result<Made> result) {
            if (!result.ok()) return done(result.status());
            const Made &made = result.value();
            CreatedFile given{made.reply, nullptr, made.has_content};
            if (const auto &handle = made.reply.handle) {
                given.file = open(*handle, Access::write);
                if (made.open) opens_.opened(*handle, made.owner, kShareAccessWrite, *made.open);
            }
            done(std::move(given));
        },
        [this, directory, name = std::string(name), set, content, owner](Compound &compound) {
            if (!*owner) *owner = session_.new_open_owner();
            put_putfh(compound, directory);
            put_open_create(compound, **owner, kShareAccessWrite, name, settable(set));
            content.empty() ? put_made(compound, directory) : put_content(compound, directory, content);
        },
        [directory, size = content.size(), owner](Results &results, const rpc::Request &, Made &made) {
            OpenReply open;
            if (!results.next(Op::putfh) || !results.next(Op::open) || !get_open(results.reader(), open)) return false;
            made.owner = **owner;
            made.open = open.state;
            return size == 0 ? get_made(results, directory, made.reply) : get_content(results, directory, size, made);
        });
    without_mode_if_need_be(*call);
    send(std::move(call));
}

// What is made is given all that the server lets one set.
SetAttributes ExportVolume::settable(const SetAttributes &set) const {
    return abilities_.sets_modes ? set : SetAttributes{{}, set.size};
}

void ExportVolume::without_mode_if_need_be(Call &call) {
    call.rescue = [this](NfsStatus status, std::unique_ptr<Call> &refused) {
        if (status != NfsStatus::attrnotsupp || !std::exchange(abilities_.sets_modes, false)) return false;
        session_.start(std::move(refused));
        return true;
    };
}

}  // namespace nfstdm::nfs4
