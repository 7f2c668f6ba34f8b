// SPDX-License-Identifier: Apache-2.0
// One server as its exports share it: its paths and ports, the identity presented to it, and the connections to its NFS
// program.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "nfstdm/base/event_loop.h"
#include "nfstdm/base/status.h"
#include "nfstdm/base/trace.h"
#include "nfstdm/rpc/auth/gss.h"
#include "nfstdm/rpc/client.h"
#include "nfstdm/rpc/timing.h"
#include "nfstdm/rpc/transport/tls.h"
#include "nfstdm/volume/server_config.h"

namespace nfstdm::remote {

struct Ports {
    uint16_t mount = 0;
    uint16_t nfs = 0;
};

class Server {
  public:
    Server(EventLoop &loop, const ServerConfig &config, const Trace &trace, const rpc::Timing &timing);

    EventLoop &loop() { return loop_; }
    const Trace &trace() const { return trace_; }
    const ServerConfig &config() const { return config_; }
    const rpc::Timing &timing() const { return timing_; }
    std::chrono::seconds contact_limit() const;
    const std::string &name() const { return config_.name; }

    // Why nothing on this server can be used, whatever the export: its block, its version or one of its paths.
    const Status &problem() const { return problem_; }

    // Who presents the caller under a security by name. ENOTSUP for a name that is none, or whose module is missing.
    Result<std::shared_ptr<rpc::Authenticator>> authenticator(const std::string &security);
    // The same to the MOUNT program, which says what the export is to be used with and asks for no more than sys.
    Result<std::shared_ptr<rpc::Authenticator>> mount_authenticator(const std::string &security);

    // Ports as far as the block gives them; 0 = the portmapper must be asked. A path that has a port of its own needs
    // neither.
    Ports configured_ports() const { return {config_.mount_port, config_.nfs_port}; }
    bool every_path_has_port() const;
    std::size_t path_count() const { return paths_.size(); }
    // The hosts whose portmapper can be asked.
    std::vector<rpc::Path> portmapper_paths() const;

    // Clients of the programs, which share what they learn about the hosts' addresses. ports may be 0 where the block
    // needs none; paths without a port are left out then.
    std::unique_ptr<rpc::Client> new_portmap_client();
    // Of any program, for the first contact and the farewell.
    std::unique_ptr<rpc::Client> new_contact_client(rpc::Program program, uint16_t port);
    // For NFSv4, which has one port for everything; its owner shares it. introduction must outlive the client.
    std::unique_ptr<rpc::Client> new_nfs4_client(rpc::Introduction &introduction);
    // The one client of the NFS program that all exports share. Every use ends with release_nfs(), and by then the user
    // has no request there; with the last one the connections are closed.
    rpc::Client &use_nfs(uint16_t port);
    void release_nfs();

    // What the last contact found out, for the next.
    std::optional<Ports> known_ports;

  private:
    Result<std::shared_ptr<rpc::Authenticator>> kerberos(const std::string &security, rpc::GssService service);
    std::vector<rpc::Path> program_paths(uint16_t port) const;
    rpc::TransportMaker tls_transports(rpc::Program program) const;
    std::unique_ptr<rpc::Client> new_client(rpc::ClientConfig config);
    std::unique_ptr<rpc::Client> new_nfs_client(std::vector<rpc::Path> paths, uint32_t version,
                                                rpc::Introduction *introduction = nullptr);

    EventLoop &loop_;
    const ServerConfig config_;
    const Trace &trace_;
    const rpc::Timing timing_;
    const std::shared_ptr<rpc::AddressBook> addresses_ = std::make_shared<rpc::AddressBook>();
    const std::shared_ptr<rpc::TlsContext> tls_;  // null = plain TCP
    std::vector<rpc::Path> paths_;                // port 0 = the program's
    Status problem_;
    std::map<std::string, std::shared_ptr<rpc::Authenticator>> kerberos_;  // by security
    std::unique_ptr<rpc::Client> nfs_;
    unsigned users_ = 0;  // of nfs_
};

}  // namespace nfstdm::remote
