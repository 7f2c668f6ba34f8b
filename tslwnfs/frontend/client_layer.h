// SPDX-License-Identifier: Apache-2.0
// What the front end asks of the NFS client layer beside the storage interface.
#pragma once

#include <cstdint>
#include <string>

// Who the client says it is when it calls a server (AUTH_SYS, RFC 5531, appendix A).
struct PresentedIdentity {
    std::string computer_name;  // at most 512 characters
    uint32_t uid = 0;
    uint32_t gid = 0;
};

// False when the host does not tell its name.
bool presented_identity(PresentedIdentity &identity);

// Ends the client layer; mask names its parts.
void shut_down_client_layer(uint32_t mask);
