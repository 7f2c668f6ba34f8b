// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tdm/volume_factory.h"

#include <memory>
#include <optional>

#include "nfstdm/nfs3/nfs3_volume.h"
#include "nfstdm/nfs4/nfs4_volume.h"
#include "nfstdm/volume/version.h"

namespace nfstdm {

namespace {

// The protocols of one session, made when its loop is known.
struct Protocols {
    Protocols(EventLoop &loop, const Trace &trace) : version3(loop, trace), version4(loop, trace) {}

    nfs3::Exports version3;
    nfs4::Exports version4;
};

}  // namespace

// A session has one loop, so one factory of each protocol serves it, and the exports of a server share its connections.
// A version that makes no sense is left to the first protocol, which says so.
VolumeFactory protocol_volume_factory(const Trace &trace) {
    auto protocols = std::make_shared<std::optional<Protocols>>();
    return [&trace, protocols](EventLoop &loop, const ServerConfig &server,
                               const ServerExport &share) -> std::unique_ptr<Volume> {
        if (!*protocols) protocols->emplace(loop, trace);
        const auto version = parse_version(server.version);
        if (!version.ok() || version.value().major == 3) return (*protocols)->version3.open(server, share);
        return (*protocols)->version4.open(server, share, version.value());
    };
}

}  // namespace nfstdm
