// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "tools/loopnfsd/faults/faults.h"
#include "tools/loopnfsd/store/exports.h"
#include "tools/loopnfsd/store/tree.h"
#include "tools/loopnfsd/wire/rpc.h"

namespace loopnfsd {

// The MOUNT protocol version 3 (RFC 1813 section 5).
class MountService final : public Program {
  public:
    // groups: host names and the like shown with every export; they keep nobody out. What is given as a reference must
    // outlive the service.
    MountService(const ExportTable &exports, Tree &tree, Faults &faults, std::vector<std::string> groups)
        : exports_(exports), tree_(tree), faults_(faults), groups_(std::move(groups)) {}

    uint32_t number() const override;
    uint32_t version() const override;
    bool run(uint32_t procedure, Call &call) override;

  private:
    struct Mounted {
        std::string client;
        std::string path;

        bool operator==(const Mounted &) const = default;
    };

    bool mnt(Call &call);
    bool dump(Call &call) const;
    bool umnt(Call &call);
    bool umntall(Call &call);
    bool export_list(Call &call) const;
    Outcome<Object> find(std::string_view path);

    const ExportTable &exports_;
    Tree &tree_;
    Faults &faults_;
    std::vector<std::string> groups_;
    std::vector<Mounted> mounted_;
};

}  // namespace loopnfsd
