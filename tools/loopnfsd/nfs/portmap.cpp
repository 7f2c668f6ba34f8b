// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/nfs/portmap.h"

#include <algorithm>
#include <array>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/portmap/constants.h"

namespace loopnfsd {

namespace {

using namespace nfstdm;

constexpr uint32_t kProcDump = 4;

struct Registration {
    uint32_t program;
    uint32_t version;
};
constexpr std::array kRegistered{Registration{nfs3::kProgram, nfs3::kVersion},
                                 Registration{mount3::kProgram, mount3::kVersion}};

}  // namespace

uint32_t PortmapService::number() const {
    return portmap::kProgram;
}

uint32_t PortmapService::version() const {
    return portmap::kVersion;
}

bool PortmapService::run(uint32_t procedure, Call &call) {
    if (procedure == portmap::kProcGetPort) return get_port(call);
    if (procedure == kProcDump) return dump(call);
    return call.arguments.finished();
}

// Another version of a program that is here has the same port: the program itself says which versions it has
// (RFC 1833 section 3.2).
bool PortmapService::get_port(Call &call) {
    uint32_t program = 0;
    uint32_t version = 0;
    uint32_t protocol = 0;
    uint32_t ignored = 0;
    xdr::Reader &in = call.arguments;
    if (!in.get_u32(program) || !in.get_u32(version) || !in.get_u32(protocol) || !in.get_u32(ignored) || !in.finished())
        return false;
    const bool here = protocol == portmap::kProtocolTcp &&
                      std::ranges::any_of(kRegistered, [&](const auto &each) { return each.program == program; });
    call.results.put_u32(here ? call.arrival.port : 0);
    return true;
}

bool PortmapService::dump(Call &call) {
    for (const Registration &each : kRegistered) {
        call.results.put_bool(true);
        call.results.put_u32(each.program);
        call.results.put_u32(each.version);
        call.results.put_u32(portmap::kProtocolTcp);
        call.results.put_u32(call.arrival.port);
    }
    call.results.put_bool(false);
    return call.arguments.finished();
}

}  // namespace loopnfsd
