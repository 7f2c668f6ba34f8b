// SPDX-License-Identifier: Apache-2.0
// Who the client says it is: the AUTH_SYS identity (RFC 5531 section 14 and appendix A).
#pragma once

#include <unistd.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "nfstdm/base/status.h"

namespace nfstdm::rpc {

struct Identity {
    std::string machine;  // at most kMachineMaximum characters
    uint32_t uid = 0;
    uint32_t gid = 0;
    std::vector<uint32_t> groups;  // supplementary, in the system's order; the wire carries the first 16
};

constexpr std::size_t kMachineMaximum = 512;

// Where an identity comes from. Each function behaves as the system call of its name: -1 and errno on failure.
struct IdentitySource {
    std::function<int(char *, std::size_t)> host_name = gethostname;
    std::function<uid_t()> user = geteuid;
    std::function<gid_t()> group = getegid;
    std::function<int(int, gid_t *)> groups = getgroups;
};

// The identity of the process; fails with the system's error number when a question of the source fails.
Result<Identity> process_identity(const IdentitySource &source = {});

// A credential as it stands in a call's header: flavour, length, body. The machine name is cut to 255 bytes, the groups
// to 16, which is what the flavour has room for.
std::vector<std::byte> auth_sys_credential(const Identity &identity);
std::vector<std::byte> auth_none_credential();

}  // namespace nfstdm::rpc
