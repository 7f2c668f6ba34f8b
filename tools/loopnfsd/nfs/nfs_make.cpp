// SPDX-License-Identifier: Apache-2.0
// CREATE, MKDIR, SYMLINK, MKNOD.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <string>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/nfs/nfs.h"
#include "tools/loopnfsd/nfs/permissions.h"

namespace loopnfsd {

namespace {

using nfstdm::nfs3::CreateMode;
using nfstdm::nfs3::TimeHow;
using nfstdm::xdr::Reader;

constexpr uint32_t kFileMode = 0644;
constexpr uint32_t kExclusiveMode = 0600;  // until the SETATTR that follows an exclusive CREATE
constexpr uint32_t kDirectoryMode = 0755;
constexpr uint32_t kModeBits = 07777;

// ftype3 of MKNOD's arguments
enum class NodeType : uint32_t { block = 3, character = 4, socket = 6, fifo = 7 };

NfsStatus status_of_call(int result) {
    return result < 0 ? status_of_errno(errno) : NfsStatus::ok;
}

// Where the verifier of an exclusive CREATE is kept, so that a repeat after a restart is recognised: in the times, as
// RFC 1813 section 3.3.8 proposes. The top bits are lost, since not every file system keeps times beyond 2038.
ChangedAttributes times_of_verifier(std::span<const std::byte> verifier) {
    constexpr uint32_t kSeconds = 0x7FFFFFFF;
    Reader in(verifier);
    ChangedAttributes changed;
    for (ChangedTime *time : {&changed.access, &changed.modification}) {
        in.get_u32(time->seconds);
        time->seconds &= kSeconds;
        time->how = TimeHow::client_time;
    }
    return changed;
}

}  // namespace

void NfsService::put_made(Call &call, const MadeObject &made, const Outcome<Folder> &folder) {
    put_status(call, made.status);
    if (made.status == NfsStatus::ok) {
        call.results.put_bool(true);
        put_handle(call, made.object->key);
        put_post_op(call, &*made.object);
    }
    put_wcc(call, folder);
}

NfsService::MadeObject NfsService::make_object(Call &call, const Folder &folder, std::string_view name,
                                               ChangedAttributes changed, const Maker &maker) {
    const NfsStatus status = maker(folder, std::string(name).c_str());
    if (status != NfsStatus::ok) return {status, {}};
    listings_.forget(folder.object.key);
    auto object = tree_.child(folder.object, folder.descriptor.get(), name);
    if (!object.ok()) return {object.status(), {}};
    if (settings_.check_ids && geteuid() == 0) {  // what a caller makes belongs to the caller
        if (!changed.uid) changed.uid = call.who.uid;
        if (!changed.gid) changed.gid = call.who.gid;
    }
    changed.mode.reset();  // was given to the maker
    const NfsStatus changes = set_attributes(*object, changed);
    return {changes, std::move(*object)};
}

void NfsService::make(Call &call, const Where &where, const ChangedAttributes &changed, const Maker &maker) {
    const auto folder = find_folder(where.handle);
    MadeObject made{allow_change(call, folder), {}};
    if (made.status == NfsStatus::ok) made.status = check_new_name(where.name);
    if (made.status == NfsStatus::ok) made = make_object(call, *folder, where.name, changed, maker);
    put_made(call, made, folder);
}

bool NfsService::mkdir(Call &call) {
    Where where;
    ChangedAttributes changed;
    Reader &in = call.arguments;
    if (!get_where(in, where) || !get_changed_attributes(in, changed) || !in.finished()) return false;
    changed.size.reset();
    make(call, where, changed, [&](const Folder &folder, const char *name) {
        return status_of_call(
            mkdirat(folder.descriptor.get(), name, changed.mode.value_or(kDirectoryMode) & kModeBits));
    });
    return true;
}

bool NfsService::symlink(Call &call) {
    Where where;
    ChangedAttributes changed;
    std::string_view target;
    Reader &in = call.arguments;
    if (!get_where(in, where) || !get_changed_attributes(in, changed) || !in.get_string(target, in.left()) ||
        !in.finished())
        return false;
    changed.size.reset();
    make(call, where, changed, [&](const Folder &folder, const char *name) {
        if (target.size() >= PATH_MAX) return NfsStatus::nametoolong;
        if (target.empty() || target.find('\0') != std::string_view::npos) return NfsStatus::inval;
        return status_of_call(symlinkat(std::string(target).c_str(), folder.descriptor.get(), name));
    });
    return true;
}

bool NfsService::mknod(Call &call) {
    Where where;
    uint32_t type = 0;
    ChangedAttributes changed;
    Reader &in = call.arguments;
    if (!get_where(in, where) || !in.get_u32(type)) return false;
    const auto node = static_cast<NodeType>(type);
    const bool device = node == NodeType::block || node == NodeType::character;
    const bool known = device || node == NodeType::socket || node == NodeType::fifo;
    if (known && !get_changed_attributes(in, changed)) return false;
    if (device && !in.skip(2 * sizeof(uint32_t))) return false;
    if (!in.finished()) return false;
    changed.size.reset();
    make(call, where, changed, [&](const Folder &folder, const char *name) {
        if (!known) return NfsStatus::badtype;
        if (device) return NfsStatus::notsupp;
        const mode_t format = node == NodeType::fifo ? S_IFIFO : S_IFSOCK;
        return status_of_call(
            mknodat(folder.descriptor.get(), name, format | (changed.mode.value_or(kFileMode) & kModeBits), 0));
    });
    return true;
}

bool NfsService::create(Call &call) {
    Where where;
    uint32_t mode = 0;
    ChangedAttributes changed;
    Bytes verifier;
    Reader &in = call.arguments;
    if (!get_where(in, where) || !in.get_u32(mode) || mode > static_cast<uint32_t>(CreateMode::exclusive)) return false;
    const auto how = static_cast<CreateMode>(mode);
    if (how == CreateMode::exclusive) {
        if (!in.get_fixed(verifier, nfstdm::nfs3::kVerifierSize)) return false;
        changed = times_of_verifier(verifier);
        changed.mode = kExclusiveMode;
    } else if (!get_changed_attributes(in, changed)) {
        return false;
    }
    if (!in.finished()) return false;
    const auto folder = find_folder(where.handle);
    MadeObject made{allow_change(call, folder), {}};
    if (made.status == NfsStatus::ok) made.status = check_new_name(where.name);
    if (made.status == NfsStatus::ok) made = create_file(call, *folder, where.name, changed);
    if (made.status == NfsStatus::exist && how == CreateMode::unchecked)
        made = reuse_file(call, *folder, where.name, changed);
    if (made.status == NfsStatus::exist && how == CreateMode::exclusive)
        made = repeat_exclusive(*folder, where.name, changed);
    put_made(call, made, folder);
    return true;
}

// Only a file that was not there.
NfsService::MadeObject NfsService::create_file(Call &call, const Folder &folder, std::string_view name,
                                               const ChangedAttributes &changed) {
    return make_object(call, folder, name, changed, [&](const Folder &in, const char *entry) {
        const mode_t mode = changed.mode.value_or(kFileMode) & kModeBits;
        UniqueFd file(openat(in.descriptor.get(), entry, O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, mode));
        if (!file) return status_of_errno(errno);
        struct statx status {};
        const NfsStatus known = status_of(file.get(), status);
        if (known == NfsStatus::ok) files_.keep(key_of(in.object.key.export_id, status), std::move(file));
        return known;
    });
}

// UNCHECKED over a file that is there: it stays as it is, but for the size that was asked for.
NfsService::MadeObject NfsService::reuse_file(Call &call, const Folder &folder, std::string_view name,
                                              const ChangedAttributes &changed) {
    auto object = tree_.child(folder.object, folder.descriptor.get(), name);
    if (!object.ok()) return {object.status(), {}};
    if (!object->is_regular()) return {NfsStatus::exist, {}};
    NfsStatus status = NfsStatus::ok;
    if (changed.size) {
        status = allow(call, *object->home, object->status, kWantWrite);
        if (status == NfsStatus::ok) status = set_size(object->key, *changed.size);
    }
    return {status, std::move(*object)};
}

// EXCLUSIVE over a file that is there: the same request once more if the file still bears its verifier.
NfsService::MadeObject NfsService::repeat_exclusive(const Folder &folder, std::string_view name,
                                                    const ChangedAttributes &times) {
    auto object = tree_.child(folder.object, folder.descriptor.get(), name);
    if (!object.ok()) return {object.status(), {}};
    const struct statx &status = object->status;
    const bool same = object->is_regular() && status.stx_atime.tv_sec == times.access.seconds &&
                      status.stx_mtime.tv_sec == times.modification.seconds && status.stx_mtime.tv_nsec == 0;
    if (!same) return {NfsStatus::exist, {}};
    return {NfsStatus::ok, std::move(*object)};
}

}  // namespace loopnfsd
