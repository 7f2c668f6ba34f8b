// SPDX-License-Identifier: Apache-2.0
// Handles and names: PUTFH and the like, LOOKUP, LOOKUPP, READLINK, CREATE, REMOVE, RENAME, LINK, SECINFO_NO_NAME.
#include <fcntl.h>
#include <sys/stat.h>

#include "nfstdm/rpc/message/constants.h"
#include "tools/loopnfsd/nfs4/nfs4.h"

namespace loopnfsd::nfs4 {

namespace {

constexpr std::size_t kHandleMaximum = 128;

// nfs_ftype4, as CREATE is given it.
enum class Type : uint32_t { directory = 2, block = 3, character = 4, link = 5, socket = 6, fifo = 7 };

struct CreateArguments {
    Type type = Type::directory;
    std::string_view target;  // of a link
    std::string_view name;
    ChangedAttributes changed;
    Bitmap given;

    bool is_device() const { return type == Type::block || type == Type::character; }
    bool is_known() const { return type >= Type::directory && type <= Type::fifo; }
};

Status get_create_arguments(nfstdm::xdr::Reader &in, CreateArguments &arguments) {
    uint32_t type = 0;
    if (!in.get_u32(type)) return Status::badxdr;
    arguments.type = static_cast<Type>(type);
    if (arguments.type == Type::link && !in.get_string(arguments.target, in.left())) return Status::badxdr;
    if (arguments.is_device() && !in.skip(2 * sizeof(uint32_t))) return Status::badxdr;
    if (!in.get_string(arguments.name, in.left())) return Status::badxdr;
    const Status status = get_changes(in, arguments.changed, arguments.given);
    arguments.changed.size.reset();  // only a file has one
    return status;
}

}  // namespace

Status Nfs4Service::putrootfh(Compound &compound) {
    const Export *whole = root_.export_at("/");
    compound.state = {};
    if (whole == nullptr) {
        compound.current = PseudoRoot::handle_of("/");
        return Status::ok;
    }
    const auto object = files_.tree().root(*whole);
    if (object.ok()) enter(compound, object->key);
    return from(object.status());
}

Status Nfs4Service::putfh(Compound &compound) {
    Bytes handle;
    if (!compound.in.get_opaque(handle, kHandleMaximum)) return Status::badxdr;
    Handle wanted(handle.begin(), handle.end());
    const bool known = decode_handle(handle).has_value() || root_.path_of(handle).has_value();
    if (!known) return Status::badhandle;
    compound.current = std::move(wanted);
    compound.state = {};
    return Status::ok;
}

Status Nfs4Service::getfh(Compound &compound) {
    if (compound.current.empty()) return Status::nofilehandle;
    compound.out.put_opaque(compound.current);
    return Status::ok;
}

Status Nfs4Service::savefh(Compound &compound) {
    if (compound.current.empty()) return Status::nofilehandle;
    compound.saved = compound.current;
    compound.saved_state = compound.state;
    return Status::ok;
}

Status Nfs4Service::restorefh(Compound &compound) {
    if (compound.saved.empty()) return Status::restorefh;
    compound.current = compound.saved;
    compound.state = compound.saved_state;
    return Status::ok;
}

Status Nfs4Service::lookup_in_path(Compound &compound, const std::string &path, std::string_view name) {
    const std::string below = PseudoRoot::child(path, name);
    if (const Export *found = root_.export_at(below)) {
        const auto object = files_.tree().root(*found);
        if (object.ok()) enter(compound, object->key);
        return from(object.status());
    }
    if (!root_.has(below)) return Status::noent;
    compound.current = PseudoRoot::handle_of(below);
    compound.state = {};
    return Status::ok;
}

Status Nfs4Service::lookup(Compound &compound) {
    std::string_view name;
    if (!compound.in.get_string(name, compound.in.left())) return Status::badxdr;
    auto where = place(compound, compound.current);
    if (!where.ok()) return where.status;
    if (where->object && where->object->is_link()) return Status::symlink;
    if (where->object && !where->object->is_directory()) return Status::notdir;
    if (const Status status = check_component(name); status != Status::ok) return status;
    if (!where->object) return lookup_in_path(compound, where->path, name);
    const auto in = files_.find_folder(compound.current);
    if (!in.ok()) return from(in.status());
    const auto found = files_.find_child(compound.call, *in, name);
    if (found.ok()) enter(compound, found->key);
    return from(found.status());
}

Status Nfs4Service::lookupp(Compound &compound) {
    auto where = place(compound, compound.current);
    if (!where.ok()) return where.status;
    if (where->object && !where->object->is_directory()) return Status::notdir;
    std::string path = where->path;
    if (where->object) {
        const FileKey key = where->object->key;
        const FileKey above = files_.tree().names().parent_of(key).value_or(key);
        if (above != key) {
            enter(compound, above);
            return Status::ok;
        }
        path = where->object->home->name;
    }
    if (path == "/") return Status::noent;
    path = PseudoRoot::parent(path);
    if (!root_.has(path)) return Status::noent;
    compound.current = PseudoRoot::handle_of(path);
    compound.state = {};
    return Status::ok;
}

Status Nfs4Service::readlink(Compound &compound) {
    auto link = place(compound, compound.current);
    if (!link.ok()) return link.status;
    if (!link->object || !link->object->is_link()) return Status::wrong_type;
    const auto target = files_.target_of(*link->object);
    if (target.ok()) compound.out.put_string(*target);
    return from(target.status());
}

Status Nfs4Service::create(Compound &compound) {
    CreateArguments arguments;
    if (const Status status = get_create_arguments(compound.in, arguments); status != Status::ok) return status;
    if (!arguments.is_known()) return Status::badtype;
    auto into = folder(compound, compound.current);
    if (!into.ok()) return into.status;
    if (const Status status = check_component(arguments.name); status != Status::ok) return status;
    const Call &call = compound.call;
    const NfsStatus allowed = files_.allow(call, *into->object.home, into->object.status, kWantWrite | kWantExecute);
    if (allowed != NfsStatus::ok) return from(allowed);
    if (arguments.is_device()) return Status::notsupp;
    MadeObject made;
    if (arguments.type == Type::directory)
        made = files_.make_directory(call, *into, arguments.name, arguments.changed);
    else if (arguments.type == Type::link)
        made = files_.make_link(call, *into, arguments.name, arguments.changed, arguments.target);
    else
        made = files_.make_node(call, *into, arguments.name, arguments.changed,
                                arguments.type == Type::fifo ? S_IFIFO : S_IFSOCK);
    if (made.status != NfsStatus::ok) return from(made.status);
    put_change(compound.out, *into);
    arguments.given.put(compound.out);
    enter(compound, made.object->key);
    return Status::ok;
}

Status Nfs4Service::remove(Compound &compound) {
    std::string_view name;
    if (!compound.in.get_string(name, compound.in.left())) return Status::badxdr;
    auto from_folder = folder(compound, compound.current);
    if (!from_folder.ok()) return from_folder.status;
    if (const Status status = check_component(name); status != Status::ok) return status;
    const Object &directory = from_folder->object;
    NfsStatus status = files_.allow(compound.call, *directory.home, directory.status, kWantWrite | kWantExecute);
    struct statx gone {};
    if (status == NfsStatus::ok) status = status_at(from_folder->descriptor.get(), std::string(name).c_str(), gone);
    if (status == NfsStatus::ok) status = files_.unlink(*from_folder, name, S_ISDIR(gone.stx_mode) ? AT_REMOVEDIR : 0);
    if (status == NfsStatus::ok) put_change(compound.out, *from_folder);
    return from(status);
}

Status Nfs4Service::rename(Compound &compound) {
    std::string_view old_name;
    std::string_view new_name;
    if (!compound.in.get_string(old_name, compound.in.left()) || !compound.in.get_string(new_name, compound.in.left()))
        return Status::badxdr;
    auto source = folder(compound, compound.saved);
    if (!source.ok()) return source.status;
    auto target = folder(compound, compound.current);
    if (!target.ok()) return target.status;
    for (const std::string_view name : {old_name, new_name})
        if (const Status status = check_component(name); status != Status::ok) return status;
    NfsStatus status = NfsStatus::ok;
    for (const Folder *each : {&*source, &*target})
        if (status == NfsStatus::ok)
            status = files_.allow(compound.call, *each->object.home, each->object.status, kWantWrite | kWantExecute);
    if (status == NfsStatus::ok) status = files_.move(*source, old_name, *target, new_name);
    if (status != NfsStatus::ok) return from(status);
    put_change(compound.out, *source);
    put_change(compound.out, *target);
    return Status::ok;
}

Status Nfs4Service::link(Compound &compound) {
    std::string_view name;
    if (!compound.in.get_string(name, compound.in.left())) return Status::badxdr;
    auto object = place(compound, compound.saved);
    if (!object.ok()) return object.status;
    auto into = folder(compound, compound.current);
    if (!into.ok()) return into.status;
    if (!object->object) return Status::isdir;
    if (const Status status = check_component(name); status != Status::ok) return status;
    NfsStatus status = files_.allow(compound.call, *into->object.home, into->object.status, kWantWrite | kWantExecute);
    if (status == NfsStatus::ok) status = files_.add_name(*object->object, *into, name);
    if (status == NfsStatus::ok) put_change(compound.out, *into);
    return from(status);
}

// Flavours that are taken: all of them are, these two are told of.
Status Nfs4Service::secinfo_no_name(Compound &compound) {
    uint32_t style = 0;
    if (!compound.in.get_u32(style)) return Status::badxdr;
    if (compound.current.empty()) return Status::nofilehandle;
    compound.out.put_u32(2);
    compound.out.put_u32(nfstdm::rpc::kAuthSys);
    compound.out.put_u32(nfstdm::rpc::kAuthNone);
    compound.current.clear();  // RFC 8881 section 2.6.3.1.1.8
    return Status::ok;
}

}  // namespace loopnfsd::nfs4
