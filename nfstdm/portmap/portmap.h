// SPDX-License-Identifier: Apache-2.0
// The portmapper, version 2 (RFC 1833 section 3): on which port does a program listen?
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/client.h"

namespace nfstdm::portmap {

// For tests and fuzzers too: the results of GETPORT for a program. A program that is not registered is a failure
// (EPROTONOSUPPORT), as is a port that can not be.
Result<uint16_t> decode_port(std::span<const std::byte> results, uint32_t program);

// Asks for the TCP port of a program. client speaks to the portmapper; done is called once, unless the request is
// dropped by its owner before.
void get_port(rpc::Client &client, const void *owner, rpc::Duration limit, uint32_t program, uint32_t version,
              std::function<void(Result<uint16_t>)> done);

// What a portmapper says about itself; for a client of it.
rpc::ClientConfig client_config(std::string server, std::vector<rpc::Path> paths, const rpc::Timing &timing);

}  // namespace nfstdm::portmap
