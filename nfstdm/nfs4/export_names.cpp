// SPDX-License-Identifier: Apache-2.0
// What is asked of names, and of the objects that have them.
#include <algorithm>

#include "nfstdm/nfs4/export_volume.h"
#include "nfstdm/nfs4/objects.h"
#include "nfstdm/nfs4/status_table.h"

namespace nfstdm::nfs4 {

namespace {

// The entry that NFSv4 leaves out of its listings (RFC 8881 section 18.23.3). Above its root a server has nothing.
void add_parent(Results &results, DirectoryReply &reply) {
    AttributeValues values;
    if (!results.next(Op::lookupp) || !results.next(Op::getattr) || !get_attributes(results.reader(), values)) return;
    DirectoryEntry parent;
    parent.name = "..";
    parent.fileid = values.object.fileid;
    reply.entries.insert(reply.entries.begin(), std::move(parent));
}

}  // namespace

void ExportVolume::getattr(const FileHandle &object, Completion<Attributes> done) {
    start<Attributes>(
        "GETATTR", std::move(done),
        [object](Compound &compound) {
            put_putfh(compound, object);
            put_getattr(compound, object_attributes());
        },
        [object](Results &results, const rpc::Request &, Attributes &reply) {
            AttributeValues values;
            if (!results.next(Op::putfh) || !results.next(Op::getattr) || !get_attributes(results.reader(), values))
                return false;
            const auto told = values.attributes(object);
            if (told) reply = *told;
            return told.has_value();
        });
}

void ExportVolume::lookup(const FileHandle &directory, std::string_view name, Completion<LookupReply> done) {
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
std::size_t ExportVolume::path_components_maximum() const {
    constexpr std::size_t kInFront = 3;
    const std::size_t room = std::max<std::size_t>(session_.sizes().operations, kInFront) - kInFront;
    return std::max<std::size_t>(1, room / kOperationsOfALookup);
}

void ExportVolume::lookup_path(const FileHandle &directory, const std::vector<std::string> &names,
                               Completion<PathReply> done) {
    start<PathReply>(
        "LOOKUP", std::move(done),
        [directory, names](Compound &compound) {
            put_putfh(compound, directory);
            for (const std::string &name : names)
                put_looked_up(compound, name);
        },
        [this, count = names.size()](Results &results, const rpc::Request &, PathReply &reply) {
            if (!results.next(Op::putfh) || !get_path(results, count, reply)) return false;
            if (reply.failure.ok()) return !was_refused(results);
            // Where a lookup ends the question, what was found before it is the answer.
            reply.failure = in_context(reply.failure);
            return results.failure() == NfsStatus::noent || results.failure() == NfsStatus::symlink ||
                   results.failure() == NfsStatus::notdir || results.failure() == NfsStatus::access;
        });
}

void ExportVolume::readlink(const FileHandle &link, Completion<std::string> done) {
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

void ExportVolume::mkdir(const FileHandle &directory, std::string_view name, uint32_t mode,
                         Completion<CreateReply> done) {
    auto met = std::make_shared<std::optional<EventLoop::Clock::time_point>>();
    auto call = make<CreateReply>(
        "MKDIR",
        [met, done = std::move(done)](Result<CreateReply> result) {
            if (result.ok()) result.value().maybe_made_since = *met;
            done(std::move(result));
        },
        [this, directory, name = std::string(name), mode](Compound &compound) {
            put_putfh(compound, directory);
            put_mkdir(compound, name, settable({mode, {}}));
            put_made(compound, directory);
        },
        [directory](Results &results, const rpc::Request &, CreateReply &reply) {
            return results.next(Op::putfh) && results.next(Op::create) && get_created(results.reader()) &&
                   get_made(results, directory, reply);
        });
    without_mode_if_need_be(*call);
    call->done_before = NfsStatus::exist;
    call->found_done = [met](EventLoop::Clock::time_point first_sent) { *met = first_sent; };
    send(std::move(call));
}

void ExportVolume::readdir(const FileHandle &directory, uint64_t cookie, uint64_t verifier, bool plus,
                           Completion<DirectoryReply> done) {
    static const AttributeSet kNameAttributes{Attribute::rdattr_error, Attribute::fileid};
    static const AttributeSet kEntryAttributes = [] {
        AttributeSet set = object_attributes();
        set.add(Attribute::rdattr_error);
        set.add(Attribute::filehandle);
        return set;
    }();
    start<DirectoryReply>(
        "READDIR", std::move(done),
        [this, directory, cookie, verifier, plus](Compound &compound) {
            put_putfh(compound, directory);
            put_getattr(compound, object_attributes());
            put_readdir(compound, cookie, verifier, limits_.readdir_preferred,
                        plus ? kEntryAttributes : kNameAttributes);
            compound.expect(limits_.readdir_preferred);
            if (cookie != 0) return;
            put_plain(compound, Op::lookupp);
            put_getattr(compound, {Attribute::fileid});
        },
        [directory, cookie](Results &results, const rpc::Request &, DirectoryReply &reply) {
            AttributeValues values;
            if (!results.next(Op::putfh) || !results.next(Op::getattr) || !get_attributes(results.reader(), values))
                return false;
            reply.directory = values.attributes(directory);
            if (!results.next(Op::readdir) || !get_readdir(results.reader(), reply)) return false;
            if (cookie == 0) add_parent(results, reply);
            return true;
        });
}

}  // namespace nfstdm::nfs4
