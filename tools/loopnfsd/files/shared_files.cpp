// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/files/shared_files.h"

#include <fcntl.h>

#include "nfstdm/base/random.h"

namespace loopnfsd {

SharedFiles::SharedFiles(const ExportTable &exports, Tree &tree, Faults &faults, const ServiceSettings &settings)
    : exports_(exports),
      tree_(tree),
      faults_(faults),
      settings_(settings),
      buffers_(settings.max_read + sizeof(uint32_t)),  // with the padding
      write_verifier_(nfstdm::random_number()) {}

void SharedFiles::forget_unstable() {
    held_.drop_all();
    write_verifier_ = nfstdm::random_number();
}

void SharedFiles::store_unstable() {
    for (const FileKey &key : held_.files()) {
        const auto file = files_.get(tree_, key, true);
        if (file.ok()) store_held(*file, key);
    }
}

Outcome<Object> SharedFiles::find(Bytes handle) {
    auto object = tree_.resolve(handle);
    if (object.ok()) held_.adjust(object->key, object->status);
    return object;
}

Outcome<SharedFiles::Folder> SharedFiles::find_folder(Bytes handle) {
    auto object = tree_.resolve(handle);
    if (!object.ok()) return object.status();
    if (!object->is_directory()) return NfsStatus::notdir;
    auto descriptor = object->open(O_PATH | O_DIRECTORY);
    if (!descriptor.ok()) return descriptor.status();
    return Folder{std::move(*object), std::move(*descriptor)};
}

bool SharedFiles::read_only(const Call &call, const Export &home) {
    return home.read_only || faults_.hit(FaultKind::read_only, call.arrival.path);
}

NfsStatus SharedFiles::allow(const Call &call, const Export &home, const struct statx &status, unsigned want) {
    if ((want & (kWantWrite | kWantOwner)) != 0 && read_only(call, home)) return NfsStatus::rofs;
    if (!settings_.check_ids || has_permission(call.who, status, want)) return NfsStatus::ok;
    return (want & kWantOwner) != 0 ? NfsStatus::perm : NfsStatus::acces;
}

NfsStatus SharedFiles::allow_change(const Call &call, const Outcome<Folder> &folder) {
    if (!folder.ok()) return folder.status();
    return allow(call, *folder->object.home, folder->object.status, kWantWrite | kWantExecute);
}

struct statx SharedFiles::shown(const Call &call, const FileKey &key, struct statx status) const {
    held_.adjust(key, status);
    const auto lie = faults_.number(FaultKind::big_size, call.arrival.path);
    if (lie && S_ISREG(status.stx_mode)) status.stx_size = *lie;
    return status;
}

Outcome<Object> SharedFiles::find_child(const Call &call, const Folder &folder, std::string_view name) {
    const NfsStatus status = allow(call, *folder.object.home, folder.object.status, kWantExecute);
    if (status != NfsStatus::ok) return status;
    return tree_.child(folder.object, folder.descriptor.get(), name);
}

std::vector<std::byte> SharedFiles::handle_of(const Call &call, const FileKey &key) {
    const auto size = faults_.number(FaultKind::handle_size, call.arrival.path);
    return encode_handle(key, size.value_or(kHandleSize));
}

}  // namespace loopnfsd
