// SPDX-License-Identifier: Apache-2.0
// The directories that lead from the server's root to the exports (RFC 8881 section 7.3): made of the exports' names
// alone, readable by everyone, never changed.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/store/exports.h"

namespace loopnfsd::nfs4 {

class PseudoRoot {
  public:
    // The exports must outlive this.
    explicit PseudoRoot(const ExportTable &exports) : exports_(exports) {}

    // Paths are those of exports: "/" or "/a/b".
    bool has(std::string_view path) const;                 // one that leads to an export, and is none itself
    const Export *export_at(std::string_view path) const;  // the one of exactly this name
    std::vector<std::string> names_in(std::string_view path) const;

    static std::string child(std::string_view path, std::string_view name);
    static std::string parent(std::string_view path);

    static std::vector<std::byte> handle_of(std::string_view path);
    // Nothing when the handle is not that of such a directory.
    std::optional<std::string> path_of(std::span<const std::byte> handle) const;

    struct statx status_of(std::string_view path) const;

  private:
    const ExportTable &exports_;
};

}  // namespace loopnfsd::nfs4
