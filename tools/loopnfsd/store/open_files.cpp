// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/open_files.h"

#include <fcntl.h>

#include <algorithm>
#include <utility>

namespace loopnfsd {

namespace {

constexpr std::size_t kFilesKept = 128;

}  // namespace

std::list<OpenFiles::Kept>::iterator OpenFiles::find(const FileKey &key, bool to_write) {
    return std::ranges::find_if(
        files_, [&](const Kept &file) { return file.key == key && (to_write ? file.writable : file.readable); });
}

Outcome<OpenFile> OpenFiles::get(Tree &tree, const FileKey &key, bool to_write) {
    auto kept = find(key, to_write);
    if (kept == files_.end()) {
        const auto object = tree.resolve(key);
        if (!object.ok()) return object.status();
        if (object->is_directory()) return NfsStatus::isdir;
        if (!object->is_regular()) return NfsStatus::inval;
        bool readable = true;
        auto opened = object->open(to_write ? O_RDWR : O_RDONLY);
        if (!opened.ok() && to_write) {
            readable = false;
            opened = object->open(O_WRONLY);
        }
        if (!opened.ok()) return opened.status();
        keep(Kept{key, std::move(*opened), readable, to_write});
        kept = files_.begin();
    }
    files_.splice(files_.begin(), files_, kept);
    OpenFile file{kept->descriptor.get(), {}};
    const NfsStatus status = status_of(file.descriptor, file.status);
    if (status != NfsStatus::ok) return status;
    if (file.status.stx_nlink != 0 && key_of(key.export_id, file.status) == key) return file;
    forget(key);
    return NfsStatus::stale;
}

void OpenFiles::keep(const FileKey &key, UniqueFd descriptor) {
    keep(Kept{key, std::move(descriptor), true, true});
}

void OpenFiles::keep(Kept file) {
    forget(file.key);
    files_.push_front(std::move(file));
    if (files_.size() > kFilesKept) files_.pop_back();
}

void OpenFiles::forget(const FileKey &key) {
    std::erase_if(files_, [&](const Kept &file) { return file.key == key; });
}

}  // namespace loopnfsd
