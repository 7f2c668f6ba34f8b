// SPDX-License-Identifier: Apache-2.0
// The security flavour of a mount: what tslnfstab asks for and what the server offers (RFC 5531 section 8.2, RFC 2623
// section 2.2.2).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "nfstdm/volume/server_config.h"

namespace nfstdm::remote {

// The words of tslnfstab for the flavours in a list.
std::string flavour_names(const std::vector<uint32_t> &flavours);

// What the export is to be used with: its own security, the server's default, or "sys".
const std::string &wanted_security(const ServerConfig &server, const ServerExport &share);

// Whether a server that lists flavours takes this security.
bool offers(const std::vector<uint32_t> &flavours, const std::string &security);

}  // namespace nfstdm::remote
