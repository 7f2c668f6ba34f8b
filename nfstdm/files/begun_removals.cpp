// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/files/begun_removals.h"

#include <utility>

namespace nfstdm {
namespace {

std::string key_of(const FileHandle &directory, std::string_view name) {
    std::string key;
    set_name_key(key, directory, name);
    return key;
}

}  // namespace

bool BegunRemovals::begin(Volume &volume, const FileHandle &directory, std::string_view name,
                          const FoundObject &object) {
    if (removals_.size() == kMaximum) return false;
    const auto [place, is_new] = removals_.try_emplace(key_of(directory, name));
    if (!is_new) return false;
    place->second = std::make_shared<Removal>(Removal{object, std::nullopt});
    volume.remove(directory, name,
                  [removal = place->second](Result<DirectoryChange> reply) { removal->reply = std::move(reply); });
    return true;
}

std::shared_ptr<const BegunRemovals::Removal> BegunRemovals::find(const FileHandle &directory,
                                                                  std::string_view name) const {
    if (removals_.empty()) return nullptr;
    const auto found = removals_.find(key_of(directory, name));
    return found == removals_.end() ? nullptr : found->second;
}

void BegunRemovals::forget(const FileHandle &directory, std::string_view name) {
    removals_.erase(key_of(directory, name));
}

}  // namespace nfstdm
