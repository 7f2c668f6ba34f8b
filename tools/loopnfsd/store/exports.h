// SPDX-License-Identifier: Apache-2.0
// The folders that are served, and the names they are served under.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tools/loopnfsd/base/unique_fd.h"

namespace loopnfsd {

struct Export {
    std::string name;    // "/" or "/a/b": absolute, without a slash at its end
    std::string folder;  // as it was given
    bool read_only = false;
    uint32_t id = 0;  // made from the name, so that handles outlive the server and the order of its options
    UniqueFd root;
};

class ExportTable {
  public:
    // Opens the folder. Gives what is wrong, or nothing.
    std::string add(std::string_view name, const std::string &folder, bool read_only);

    const std::vector<Export> &all() const { return exports_; }
    const Export *by_id(uint32_t id) const;

    // The export with the longest name that a path lies in, and what of the path is left below it ("" or "a/b").
    const Export *containing(std::string_view path, std::string_view &below) const;

  private:
    std::vector<Export> exports_;
};

}  // namespace loopnfsd
