// SPDX-License-Identifier: Apache-2.0
// What minor version 2 adds (RFC 7862): copies that the server makes, and the holes of a file.
#include <cerrno>

#include "nfstdm/nfs4/export_volume.h"
#include "nfstdm/nfs4/status_table.h"

namespace nfstdm::nfs4 {

namespace {

struct Found {
    SeekReply data;
    SeekReply hole;
};

// There is nothing but a hole from here on.
constexpr Extent kNothing{UINT64_MAX, UINT64_MAX};

}  // namespace

// Between two exports only where both files are shown to the same user.
void ExportVolume::copy(ExportVolume *source, const FileHandle &from, const FileHandle &to, const CopyRange &range,
                        Completion<CopyReply> done) {
    const bool possible = source != nullptr && source->server_ == server_ && source->security_ == security_ &&
                          session_.minor_version() >= kMinorVersionOfCopies &&
                          (abilities_.clones || abilities_.copies) && is_attached();
    if (!possible) {
        loop().soon([done = std::move(done)] { done(Status{ENOTSUP, "COPY: the server does not copy by itself"}); });
        return;
    }
    const ServerCopy::Means means{[this](std::string_view name) { return new_call(name); },
                                  [this](std::unique_ptr<Call> call) { send(std::move(call)); }, abilities_};
    std::make_shared<ServerCopy>(ServerCopy::File{source->opens_, from}, ServerCopy::File{opens_, to}, range, means,
                                 std::move(done))
        ->begin();
}

// Asked for both at once: where there is data here already, the next hole is its end.
void ExportVolume::extent(const FileHandle &file, uint64_t offset, const Completion<Extent> &done) {
    auto call = make<Found>(
        "SEEK",
        [this, file, offset, done](const Result<Found> &found) {
            if (!found.ok()) return done(found.status());
            const auto &[data, hole] = found.value();
            if (data.eof) return done(kNothing);
            if (data.offset < offset) return done(not_told());
            if (data.offset > offset) return seek_end(file, data.offset, done);
            // Data and a hole in one place: the server accepts the question and does not look.
            if (!hole.eof && hole.offset <= offset) return done(not_told());
            done(Extent{offset, hole.eof ? UINT64_MAX : hole.offset});
        },
        [this, file, offset](Compound &compound) {
            put_putfh(compound, file);
            put_seek(compound, opens_.state(file), offset, Content::data);
            put_seek(compound, opens_.state(file), offset, Content::hole);
        },
        [](Results &results, const rpc::Request &, Found &found) {
            return results.next(Op::putfh) && results.next(Op::seek) && get_seek(results.reader(), found.data) &&
                   results.next(Op::seek) && get_seek(results.reader(), found.hole);
        });
    call->rescue = [this, done](NfsStatus status, const std::unique_ptr<Call> &) {
        if (status == NfsStatus::nxio) {
            done(kNothing);
            return true;
        }
        if (status != NfsStatus::notsupp && status != NfsStatus::op_illegal) return false;
        done(not_told());
        return true;
    };
    send(std::move(call));
}

// Not asked again either.
Status ExportVolume::not_told() {
    abilities_.seeks = false;
    return in_context({ENOTSUP, "SEEK: the server does not tell holes"});
}

void ExportVolume::seek_end(const FileHandle &file, uint64_t begin, const Completion<Extent> &done) {
    start<SeekReply>(
        "SEEK",
        [this, begin, done](const Result<SeekReply> &hole) {
            if (!hole.ok()) return done(hole.status());
            if (!hole.value().eof && hole.value().offset <= begin) return done(not_told());
            done(Extent{begin, hole.value().eof ? UINT64_MAX : hole.value().offset});
        },
        [this, file, begin](Compound &compound) {
            put_putfh(compound, file);
            put_seek(compound, opens_.state(file), begin, Content::hole);
        },
        [](Results &results, const rpc::Request &, SeekReply &hole) {
            return results.next(Op::putfh) && results.next(Op::seek) && get_seek(results.reader(), hole);
        });
}

}  // namespace nfstdm::nfs4
