// SPDX-License-Identifier: Apache-2.0
// What is done to the content of files, and to what is open for it.
#include <chrono>
#include <utility>

#include "nfstdm/nfs4/export_volume.h"
#include "nfstdm/nfs4/objects.h"
#include "nfstdm/nfs4/status_table.h"
#include "nfstdm/volume/file_by_handle.h"

namespace nfstdm::nfs4 {

namespace {

// Data that is copied into a request so that more can be asked behind it.
constexpr std::size_t kSmallWrite = std::size_t{64} << 10;
// How often an operation may meet a server that has lost its state.
constexpr unsigned kRescuesMaximum = 8;

// Why a server may refuse to read a file that is not open; of the others none has to do with that.
bool wants_open_file(NfsStatus status) {
    switch (status) {
        case NfsStatus::openmode:
        case NfsStatus::locked:
        case NfsStatus::access:
        case NfsStatus::perm:
        case NfsStatus::inval:
        case NfsStatus::serverfault:
            return true;
        default:
            return state_is_lost(status);
    }
}

struct Nothing {};

Completion<Nothing> without_reply(DoneCompletion done) {
    return [done = std::move(done)](const Result<Nothing> &result) { done(result.status()); };
}

// A server can not have accepted more than it was sent, and one that accepts nothing of something would be sent it
// again for ever.
bool get_written(Results &results, std::size_t sent, WriteReply &reply) {
    return results.next(Op::putfh) && results.next(Op::write) && get_write(results.reader(), reply) &&
           reply.count <= sent && (reply.count > 0 || sent == 0);
}

// A file that somebody here holds open.
class ExportFile : public FileByHandle<ExportVolume> {
  public:
    ExportFile(ExportVolume &volume, const FileHandle &handle, uint32_t access) : FileByHandle(volume, handle) {
        volume.opens().hold(handle, access);
    }
    ~ExportFile() override { protocol_.opens().release(handle_); }

    void copy_from(VolumeFile &source, const CopyRange &range, Completion<CopyReply> done) override {
        const auto *const from = dynamic_cast<ExportFile *>(&source);
        protocol_.copy(from == nullptr ? nullptr : &from->protocol_, from == nullptr ? FileHandle{} : from->handle_,
                       handle_, range, std::move(done));
    }
    void extent(uint64_t offset, Completion<Extent> done) override { protocol_.extent(handle_, offset, done); }
};

uint32_t share_access(Access access) {
    return access == Access::read ? kShareAccessRead : kShareAccessWrite;
}

}  // namespace

std::unique_ptr<VolumeFile> ExportVolume::open(const FileHandle &file, Access access) {
    return std::make_unique<ExportFile>(*this, file, share_access(access));
}

// A call that presents the state of an open file: when the server has lost it, the file is opened again and the call
// made once more. Nobody waits for one of a file that nobody holds any more: it is made without a state.
void ExportVolume::with_state(Call &call, const FileHandle &file, uint32_t access, std::shared_ptr<StateId> used) {
    auto rescues = std::make_shared<unsigned>(0);
    call.rescue = [this, file, access, used = std::move(used), rescues](NfsStatus status,
                                                                        std::unique_ptr<Call> &pointer) {
        if (!state_is_lost(status) || ++*rescues > kRescuesMaximum) return false;
        opens_.lost(file, *used);
        if (!opens_.is_held(file)) {
            session_.start(std::move(pointer));
            return true;
        }
        std::shared_ptr<std::unique_ptr<Call>> kept = std::make_shared<std::unique_ptr<Call>>(std::move(pointer));
        opens_.use(file, access, [this, kept](const Status &opened) {
            if (opened.ok()) return session_.start(std::move(*kept));
            (*kept)->done(opened);
        });
        return true;
    };
}

void ExportVolume::setattr(const FileHandle &object, const SetAttributes &set, DoneCompletion done) {
    auto used = std::make_shared<StateId>();
    auto call = make<Nothing>(
        "SETATTR", without_reply(std::move(done)),
        [this, object, set, used](Compound &compound) {
            *used = opens_.state(object, kShareAccessWrite);
            put_putfh(compound, object);
            put_setattr(compound, *used, set);
        },
        [](Results &results, const rpc::Request &, Nothing &) {
            return results.next(Op::putfh) && results.next(Op::setattr) && get_set(results.reader());
        });
    with_state(*call, object, kShareAccessWrite, used);
    send(std::move(call));
}

void ExportVolume::read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                        Completion<ReadReply> done) {
    // Less than a whole READ from the start is most likely all of the file.
    const bool whole = offset == 0 && buffer.size() < limits_.read_maximum && !opens_.is_open(file);
    if (whole || !is_attached()) return read_whole(file, buffer, done);
    if (!opens_.is_open(file)) return read_first(file, offset, buffer, done);
    if (opens_.is_being_opened(file)) return read_early(file, offset, buffer, done);
    read_when_open(file, offset, buffer, std::move(done));
}

void ExportVolume::read_when_open(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                                  Completion<ReadReply> done) {
    opens_.use(file, kShareAccessRead, [this, file, offset, buffer, done = std::move(done)](const Status &opened) {
        if (!opened.ok()) return done(opened);
        read_open(file, offset, buffer, done);
    });
}

// The READ that a file is opened for is asked together with that.
void ExportVolume::read_first(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                              const Completion<ReadReply> &done) {
    auto reply = std::make_shared<ReadReply>();
    Opens::Behind behind;
    behind.put = [offset, count = static_cast<uint32_t>(buffer.size())](Compound &compound) {
        put_read(compound, StateId::current(), offset, count);
    };
    behind.read = [reply](Results &results, const rpc::Request &request) {
        *reply = {};
        return results.next(Op::read) && get_read(results.reader(), request.landed, *reply);
    };
    behind.landing = buffer;
    behind.done = [reply, done](const Status &status) {
        if (!status.ok()) return done(status);
        done(*reply);
    };
    behind.alone = [this, file, offset, buffer, done] { read_open(file, offset, buffer, done); };
    opens_.open_with(file, kShareAccessRead, std::move(behind));
}

// What one READ brings needs no state: without one the server looks at the permissions, and at what others deny, as it
// does for OPEN (RFC 8881 sections 8.2.3 and 9.1.2). One that wants its files open all the same is asked so from then
// on.
void ExportVolume::read_whole(const FileHandle &file, std::span<std::byte> buffer, const Completion<ReadReply> &done) {
    if (!abilities_.reads_unopened) return open_read_close(file, buffer, done);
    auto call = new_read(file, 0, buffer, std::make_shared<StateId>(), done);
    call->rescue = [this, file, buffer, done](NfsStatus status, const std::unique_ptr<Call> &) {
        if (!wants_open_file(status)) return false;
        open_read_close(file, buffer, [this, done](Result<ReadReply> reply) {
            if (reply.ok()) abilities_.reads_unopened = false;
            done(std::move(reply));
        });
        return true;
    };
    send(std::move(call));
}

// In one question. Asked again it opens for the same owner, so that one closing does for all.
void ExportVolume::open_read_close(const FileHandle &file, std::span<std::byte> buffer, Completion<ReadReply> done) {
    auto left = std::make_shared<std::optional<StateId>>();
    auto owner = std::make_shared<std::optional<OpenOwner>>();
    auto call = make<ReadReply>(
        "READ",
        [this, file, left, done = std::move(done)](Result<ReadReply> reply) {
            if (*left) opens_.close_behind(file, **left);
            done(std::move(reply));
        },
        [this, file, buffer, owner](Compound &compound) {
            if (!*owner) *owner = session_.new_open_owner();
            put_putfh(compound, file);
            put_open_handle(compound, **owner, kShareAccessRead, Claim::file_handle);
            put_read(compound, StateId::current(), 0, static_cast<uint32_t>(buffer.size()));
            put_close(compound, StateId::current());
            compound.expect(buffer.size() + xdr::kWord);
        },
        [buffer, left](Results &results, const rpc::Request &, ReadReply &reply) {
            OpenReply open;
            if (!results.next(Op::putfh) || !results.next(Op::open) || !get_open(results.reader(), open)) return false;
            *left = open.state;
            if (!results.next(Op::read) || !get_read_into(results.reader(), buffer, reply)) return false;
            if (!results.next(Op::close) || !get_close(results.reader())) return false;
            left->reset();
            return true;
        });
    call->repeatable = true;
    send(std::move(call));
}

// A READ that presents what state there is when it is sent, which is put into used.
std::unique_ptr<Call> ExportVolume::new_read(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                                             const std::shared_ptr<StateId> &used, Completion<ReadReply> done) {
    auto call = make<ReadReply>(
        "READ", std::move(done),
        [this, file, offset, buffer, used](Compound &compound) {
            *used = opens_.state(file, kShareAccessRead);
            put_putfh(compound, file);
            put_read(compound, *used, offset, static_cast<uint32_t>(buffer.size()));
        },
        [](Results &results, const rpc::Request &request, ReadReply &reply) {
            return results.next(Op::putfh) && results.next(Op::read) &&
                   get_read(results.reader(), request.landed, reply);
        });
    call->landing = buffer;
    return call;
}

void ExportVolume::read_open(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                             Completion<ReadReply> done) {
    const auto used = std::make_shared<StateId>();
    auto call = new_read(file, offset, buffer, used, std::move(done));
    with_state(*call, file, kShareAccessRead, used);
    send(std::move(call));
}

// The line would stand empty until the file is open, so data are asked for without a state meanwhile (RFC 8881 section
// 8.2.3). A server that wants it to be open is asked again when it is.
void ExportVolume::read_early(const FileHandle &file, uint64_t offset, std::span<std::byte> buffer,
                              const Completion<ReadReply> &done) {
    auto call = new_read(file, offset, buffer, std::make_shared<StateId>(), done);
    call->rescue = [this, file, offset, buffer, done](NfsStatus status, const std::unique_ptr<Call> &) {
        if (!wants_open_file(status)) return false;
        read_when_open(file, offset, buffer, done);
        return true;
    };
    send(std::move(call));
}

void ExportVolume::write(const FileHandle &file, uint64_t offset, std::span<const std::byte> data, Stability stability,
                         Completion<WriteReply> done) {
    if (!is_attached()) return write_open(file, offset, data, stability, std::move(done));
    opens_.use(file, kShareAccessWrite,
               [this, file, offset, data, stability, done = std::move(done)](const Status &opened) {
                   if (!opened.ok()) return done(opened);
                   // What is brought to stable storage by itself is mostly the end of what is written.
                   if (stability == Stability::file_sync && data.size() <= kSmallWrite)
                       return write_last(file, offset, data, done);
                   write_open(file, offset, data, stability, done);
               });
}

void ExportVolume::write_open(const FileHandle &file, uint64_t offset, std::span<const std::byte> data,
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
void ExportVolume::write_last(const FileHandle &file, uint64_t offset, std::span<const std::byte> data,
                              const Completion<WriteReply> &done) {
    const StateId state = opens_.take(file);
    auto call = make<WriteReply>(
        "WRITE",
        [this, file, state, done](Result<WriteReply> reply) {
            if (!reply.ok()) opens_.close_behind(file, state);
            done(std::move(reply));
        },
        [file, offset, data, state](Compound &compound) {
            put_putfh(compound, file);
            put_write_with(compound, state, offset, data, Stability::file_sync);
            put_getattr(compound, object_attributes());
            put_close(compound, state);
        },
        [file, sent = data.size()](Results &results, const rpc::Request &, WriteReply &reply) {
            AttributeValues values;
            if (!get_written(results, sent, reply) || !results.next(Op::getattr) ||
                !get_attributes(results.reader(), values))
                return false;
            reply.attributes = values.attributes(file);
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

void ExportVolume::commit(const FileHandle &file, Completion<CommitReply> done) {
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

}  // namespace nfstdm::nfs4
