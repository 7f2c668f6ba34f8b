// SPDX-License-Identifier: Apache-2.0
// A remote procedure call on its way through the server.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"
#include "tools/loopnfsd/faults/faults.h"

namespace loopnfsd {

// AUTH_SYS (RFC 5531 appendix A); nobody for any other flavour.
struct Credentials {
    static constexpr uint32_t kNobody = 65534;

    std::string machine;
    uint32_t uid = kNobody;
    uint32_t gid = kNobody;
    std::vector<uint32_t> groups;
};

// Bulk data at the end of a reply, sent from where it was read to. Shared, since a reply may be sent twice.
struct Bulk {
    std::shared_ptr<std::byte[]> bytes;
    std::size_t size = 0;  // with the padding
};

// How a call came in.
struct Arrival {
    unsigned path = 1;   // number of the address, as the faults count them
    uint16_t port = 0;   // that NFS and MOUNT are served on there
    std::string client;  // address of the caller, numeric
    // none: TLS is not served; offered: it can be asked for, and without it nothing of value is served.
    enum class Tls { none, offered, used } tls = Tls::none;
};

struct Call {
    nfstdm::xdr::Reader arguments;
    nfstdm::xdr::Writer &results;
    const Credentials &who;
    const Arrival &arrival;
    Bulk bulk;
    CallFaults befallen;  // what struck operations of the call, when it has some
};

}  // namespace loopnfsd
