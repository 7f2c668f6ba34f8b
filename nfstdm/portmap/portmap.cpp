// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/portmap/portmap.h"

#include <cerrno>
#include <limits>
#include <string>
#include <utility>

#include "nfstdm/portmap/constants.h"
#include "nfstdm/xdr/reader.h"

namespace nfstdm::portmap {

Result<uint16_t> decode_port(std::span<const std::byte> results, uint32_t program) {
    xdr::Reader reader(results);
    uint32_t port = 0;
    if (!reader.get_u32(port) || !reader.finished() || port > std::numeric_limits<uint16_t>::max())
        return Status{EIO, "the answer makes no sense"};
    if (port == 0)
        return Status{EPROTONOSUPPORT, "program " + std::to_string(program) + " is not registered for TCP",
                      Condition::not_offered};
    return static_cast<uint16_t>(port);
}

void get_port(rpc::Client &client, const void *owner, rpc::Duration limit, uint32_t program, uint32_t version,
              std::function<void(Result<uint16_t>)> done) {
    auto request = std::make_unique<rpc::Request>();
    request->name = "portmapper GETPORT";
    request->procedure = kProcGetPort;
    xdr::Writer writer;
    writer.put_u32(program);
    writer.put_u32(version);
    writer.put_u32(kProtocolTcp);
    writer.put_u32(0);  // the port is what is asked for
    request->arguments = writer.take();
    request->results_maximum = 4;
    request->limit = limit;
    request->needs_contact = true;
    request->owner = owner;
    request->done = [server = client.config().server, program, done = std::move(done)](auto answered) {
        if (!answered->status.ok()) return done(answered->status);
        const auto port = decode_port(answered->results(), program);
        done(port.ok() ? port : port.status().in("portmapper").in("server " + server));
    };
    client.submit(std::move(request));
}

rpc::ClientConfig client_config(std::string server, std::vector<rpc::Path> paths, const rpc::Timing &timing) {
    rpc::ClientConfig config;
    config.server = std::move(server);
    config.program = {kProgram, kVersion};
    config.paths = std::move(paths);
    config.source = rpc::SourcePort::any;  // anyone may ask a portmapper
    config.timing = timing;
    return config;
}

}  // namespace nfstdm::portmap
