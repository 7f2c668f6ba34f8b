// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/objects.h"

#include "nfstdm/nfs4/arguments.h"
#include "nfstdm/nfs4/fields.h"
#include "nfstdm/nfs4/status_table.h"

namespace nfstdm::nfs4 {

void put_object(Compound &compound) {
    put_plain(compound, Op::getfh);
    put_getattr(compound, object_attributes());
}

bool get_object(Results &results, FileHandle &handle, std::optional<Attributes> &attributes) {
    AttributeValues values;
    if (!results.next(Op::getfh) || !get_handle(results.reader(), handle) || !results.next(Op::getattr) ||
        !get_attributes(results.reader(), values))
        return false;
    attributes = values.attributes(handle);
    return true;
}

void put_made(Compound &compound, const FileHandle &directory) {
    put_object(compound);
    put_putfh(compound, directory);
    put_getattr(compound, object_attributes());
}

bool get_made(Results &results, const FileHandle &directory, CreateReply &reply) {
    FileHandle handle;
    if (!get_object(results, handle, reply.attributes)) return was_refused(results);
    reply.handle = handle;
    return (results.next(Op::putfh) && get_after(results, directory, reply.directory)) || was_refused(results);
}

bool get_after(Results &results, const FileHandle &directory, DirectoryChange &change) {
    AttributeValues values;
    if (!results.next(Op::getattr) || !get_attributes(results.reader(), values)) return false;
    change.after = values.attributes(directory);
    return true;
}

void put_looked_up(Compound &compound, std::string_view name) {
    put_lookup(compound, name);
    put_object(compound);
}

bool get_path(Results &results, std::size_t count, PathReply &reply) {
    reply = {};
    for (; count > 0; --count) {
        LookupReply found;
        if (!results.next(Op::lookup)) {
            reply.failure = to_status(results.failure()).in("LOOKUP");
            return was_refused(results);
        }
        if (!get_object(results, found.handle, found.attributes)) return was_refused(results);
        reply.found.push_back(found);
    }
    return true;
}

}  // namespace nfstdm::nfs4
