// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/loopnfsd/wire/rpc.h"

namespace loopnfsd {

// The portmapper, version 2 (RFC 1833 section 3), which knows this server's programs only.
class PortmapService final : public Program {
  public:
    uint32_t number() const override;
    uint32_t version() const override;
    bool run(uint32_t procedure, Call &call) override;

  private:
    static bool get_port(Call &call);
    static bool dump(Call &call);
};

}  // namespace loopnfsd
