// SPDX-License-Identifier: Apache-2.0
// Files whose removal was asked for before anybody waits for it: whoever removes one after the other would wait a round
// trip for each. Until its outcome is taken such a file is known as it was, for to its user it is there.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "nfstdm/files/object_cache.h"
#include "nfstdm/volume/volume.h"

namespace nfstdm {

class BegunRemovals {
  public:
    static constexpr std::size_t kMaximum = 128;

    struct Removal {
        FoundObject object;
        std::optional<Result<DirectoryChange>> reply;
    };

    // False when it was begun already, or too many were.
    bool begin(Volume &volume, const FileHandle &directory, std::string_view name, const FoundObject &object);

    // Null when it was not begun.
    std::shared_ptr<const Removal> find(const FileHandle &directory, std::string_view name) const;

    void forget(const FileHandle &directory, std::string_view name);

  private:
    std::unordered_map<std::string, std::shared_ptr<Removal>> removals_;
};

}  // namespace nfstdm
