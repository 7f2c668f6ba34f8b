// SPDX-License-Identifier: Apache-2.0
// Who the client says it is when it calls a server (AUTH_SYS, RFC 5531, appendix A).
#pragma once

#include <cstdint>
#include <string>

struct PresentedIdentity {
    std::string computer_name;  // at most 512 characters
    uint32_t uid = 0;
    uint32_t gid = 0;
};

// That of this process. False when the host does not tell its name.
bool presented_identity(PresentedIdentity &identity);
