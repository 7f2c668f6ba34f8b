// SPDX-License-Identifier: Apache-2.0
// CREATE, MKDIR, SYMLINK, MKNOD.
#include <sys/stat.h>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/nfs/nfs.h"

namespace loopnfsd {

namespace {

using nfstdm::nfs3::CreateMode;
using nfstdm::xdr::Reader;

constexpr uint32_t kExclusiveMode = 0600;  // until the SETATTR that follows an exclusive CREATE

// ftype3 of MKNOD's arguments
enum class NodeType : uint32_t { block = 3, character = 4, socket = 6, fifo = 7 };

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

void NfsService::make(Call &call, const Where &where, ChangedAttributes changed, const Maker &maker) {
    changed.size.reset();  // only a file has one
    const auto folder = files_.find_folder(where.handle);
    MadeObject made{files_.allow_change(call, folder), {}};
    if (made.status == NfsStatus::ok) made.status = check_new_name(where.name);
    if (made.status == NfsStatus::ok) made = maker(*folder, changed);
    put_made(call, made, folder);
}

bool NfsService::mkdir(Call &call) {
    Where where;
    ChangedAttributes changed;
    Reader &in = call.arguments;
    if (!get_where(in, where) || !get_changed_attributes(in, changed) || !in.finished()) return false;
    make(call, where, changed, [&](const Folder &folder, const ChangedAttributes &set) {
        return files_.make_directory(call, folder, where.name, set);
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
    make(call, where, changed, [&](const Folder &folder, const ChangedAttributes &set) {
        return files_.make_link(call, folder, where.name, set, target);
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
    make(call, where, changed, [&](const Folder &folder, const ChangedAttributes &set) {
        if (!known) return MadeObject{NfsStatus::badtype, {}};
        if (device) return MadeObject{NfsStatus::notsupp, {}};
        return files_.make_node(call, folder, where.name, set, node == NodeType::fifo ? S_IFIFO : S_IFSOCK);
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
    const auto folder = files_.find_folder(where.handle);
    MadeObject made{files_.allow_change(call, folder), {}};
    if (made.status == NfsStatus::ok) made.status = check_new_name(where.name);
    if (made.status == NfsStatus::ok) made = files_.create_file(call, *folder, where.name, changed);
    if (made.status == NfsStatus::exist && how == CreateMode::unchecked)
        made = files_.reuse_file(call, *folder, where.name, changed);
    if (made.status == NfsStatus::exist && how == CreateMode::exclusive)
        made = files_.repeat_exclusive(*folder, where.name, changed);
    put_made(call, made, folder);
    return true;
}

}  // namespace loopnfsd
