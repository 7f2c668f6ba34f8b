// SPDX-License-Identifier: Apache-2.0
// The portmapper, version 2 (RFC 1833 section 3): on which port does a program listen?
#pragma once

#include <cstdint>
#include <functional>

#include "nfstdm/rpc/client.h"
#include "nfstdm/status.h"

namespace nfstdm::portmap {

// Asks for the TCP port of a program. client speaks to the portmapper; done is called once, unless the request is
// dropped by its owner before. A program that is not registered is a failure (EPROTONOSUPPORT), as is a port that can
// not be.
void get_port(rpc::Client &client, const void *owner, rpc::Duration limit, uint32_t program, uint32_t version,
              std::function<void(Result<uint16_t>)> done);

// What a portmapper says about itself; for a client of it.
rpc::ClientConfig client_config(std::string server, std::vector<rpc::Path> paths, const rpc::Timing &timing);

}  // namespace nfstdm::portmap
