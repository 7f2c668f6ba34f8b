// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/remote/server.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <utility>

#include "nfstdm/portmap/constants.h"
#include "nfstdm/portmap/portmap.h"
#include "nfstdm/remote/constants.h"
#include "nfstdm/remote/security.h"
#include "nfstdm/rpc/auth/identity.h"
#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/rpc/transport/address.h"
#include "nfstdm/tls/loader.h"
#include "nfstdm/volume/version.h"

namespace nfstdm::remote {

namespace {

constexpr unsigned kConnectionsMaximum = 16;

// The paths of the block; without any the server is reached under its name.
Result<std::vector<rpc::Path>> parse_paths(const ServerConfig &config) {
    std::vector<ServerPath> texts = config.paths;
    if (texts.empty()) texts.push_back({{}, config.name});
    std::vector<rpc::Path> paths;
    for (const ServerPath &text : texts) {
        auto parsed = rpc::parse_host_port(text.path);
        if (!parsed.ok()) return parsed.status();
        paths.push_back({std::move(parsed.value().host), parsed.value().port, text.local});
    }
    return paths;
}

// Whether transport_security asks for TLS; fails where it asks for what is not there.
Result<bool> wants_tls(const ServerConfig &config) {
    const std::string &value = config.transport_security;
    if (value.empty() || value == "none") return false;
    if (value != "tls" && value != "mtls")
        return Status{EINVAL, "transport_security: \"" + value + "\" is none of none, tls and mtls"};
    if (value == "mtls" && config.tls_certificate.empty())
        return Status{EINVAL, "transport_security mtls needs a tls_certificate"};
    return true;
}

// What makes a server's connections, of whatever program; null for plain TCP.
std::shared_ptr<rpc::TlsContext> tls_of(const ServerConfig &config) {
    const auto tls = wants_tls(config);
    if (!tls.ok() || !tls.value()) return nullptr;
    const bool shows_itself = config.transport_security == "mtls";
    return std::make_shared<rpc::TlsContext>(rpc::TlsSettings{config.tls_ca, shows_itself ? config.tls_certificate : "",
                                                              config.tls_key, tls::module_path()});
}

Status find_problem(const ServerConfig &config) {
    if (!config.problem.empty()) return {EINVAL, config.problem};
    const auto tls = wants_tls(config);
    if (!tls.ok() || config.version.empty()) return tls.status();
    return parse_version(config.version).status();
}

// A configured user or group presents itself alone: the process's groups are not its.
Result<rpc::Identity> identity_of(const ServerConfig &config) {
    auto identity = rpc::process_identity();
    if (!identity.ok()) return identity;
    if (config.uid || config.gid) identity.value().groups.clear();
    identity.value().uid = config.uid.value_or(identity.value().uid);
    identity.value().gid = config.gid.value_or(identity.value().gid);
    return identity;
}

std::string host_of(const std::string &name) {
    const auto parsed = rpc::parse_host_port(name);
    return parsed.ok() ? parsed.value().host : name;
}

// The host in the name of the server's Kerberos service.
std::string principal_host(const ServerConfig &config) {
    return config.principal_host.empty() ? host_of(config.name) : config.principal_host;
}

}  // namespace

Server::Server(EventLoop &loop, const ServerConfig &config, const Trace &trace, const rpc::Timing &timing)
    : loop_(loop),
      config_(config),
      trace_(trace),
      timing_(timing),
      tls_(tls_of(config)),
      problem_(find_problem(config)) {
    auto paths = parse_paths(config);
    if (paths.ok())
        paths_ = std::move(paths.value());
    else if (problem_.ok())
        problem_ = paths.status();
    problem_ = problem_.in("server " + config.name);
    if (config.rdma_port != 0)
        trace.write(TraceLevel::notice, TraceComponent::rpc, [&config] {
            return "server " + config.name + ": rdmaport " + std::to_string(config.rdma_port) + " is not used, TCP is";
        });
}

Result<std::shared_ptr<rpc::Authenticator>> Server::authenticator(const std::string &security) {
    const SecurityRow *const row = find_security(security);
    if (row == nullptr) {
        std::string words;
        for (const SecurityRow &each : securities())
            words += (words.empty() ? "" : ", ") + std::string(each.word);
        return Status{ENOTSUP, "security " + security + " is not known; there are " + words};
    }
    if (row->service) return kerberos(security, *row->service);
    if (row->flavour == rpc::kAuthNone) return rpc::auth_none();
    const auto identity = identity_of(config_);
    if (!identity.ok()) return identity.status().in("identity");
    return rpc::auth_sys(identity.value());
}

Result<std::shared_ptr<rpc::Authenticator>> Server::mount_authenticator(const std::string &security) {
    return authenticator(security == "none" ? security : "sys");
}

// One security context does for all exports with the same security.
Result<std::shared_ptr<rpc::Authenticator>> Server::kerberos(const std::string &security, rpc::GssService service) {
    auto &known = kerberos_[security];
    if (known != nullptr) return known;
    const auto module = rpc::load_gss_module();
    if (!module.ok()) return module.status().in("security " + security);
    known = std::make_shared<rpc::GssAuthenticator>(*module.value(), "nfs@" + principal_host(config_), service);
    return known;
}

bool Server::every_path_has_port() const {
    return std::all_of(paths_.begin(), paths_.end(), [](const rpc::Path &path) { return path.port != 0; });
}

std::vector<rpc::Path> Server::portmapper_paths() const {
    std::vector<rpc::Path> paths;
    for (const rpc::Path &path : paths_)
        if (path.port == 0) paths.push_back({path.host, portmap::kPort, path.local});
    return paths;
}

std::vector<rpc::Path> Server::program_paths(uint16_t port) const {
    std::vector<rpc::Path> paths;
    for (const rpc::Path &path : paths_)
        if (path.port != 0 || port != 0) paths.push_back({path.host, path.port != 0 ? path.port : port, path.local});
    return paths;
}

std::chrono::seconds Server::contact_limit() const {
    return std::chrono::seconds(std::max(1U, config_.contact_timeout_seconds));
}

// NFS goes by TLS or not at all; the programs that lead to it are often not offered so, and tell no secrets.
rpc::TransportMaker Server::tls_transports(rpc::Program program) const {
    return [tls = tls_, program, server = host_of(config_.name), shuns = std::make_shared<bool>(false)](
               Descriptor connected, const std::string &host, uint16_t port) {
        rpc::TlsPeer peer{host + ":" + std::to_string(port), {host, server}, program.number, program.version,
                          program.number == kProgram,        shuns};
        return std::make_unique<rpc::TlsTransport>(std::move(connected), tls, std::move(peer));
    };
}

std::unique_ptr<rpc::Client> Server::new_client(rpc::ClientConfig config) {
    config.addresses = addresses_;
    if (tls_ != nullptr) config.transports = tls_transports(config.program);
    return std::make_unique<rpc::Client>(loop_, std::move(config), trace_);
}

std::unique_ptr<rpc::Client> Server::new_portmap_client() {
    return new_client(portmap::client_config(name(), portmapper_paths(), timing_.within(contact_limit())));
}

std::unique_ptr<rpc::Client> Server::new_contact_client(rpc::Program program, uint16_t port) {
    rpc::ClientConfig config;
    config.server = name();
    config.program = program;
    config.paths = program_paths(port);
    config.timing = timing_.within(contact_limit());
    return new_client(std::move(config));
}

std::unique_ptr<rpc::Client> Server::new_nfs_client(std::vector<rpc::Path> paths, uint32_t version,
                                                    rpc::Introduction *introduction) {
    rpc::ClientConfig config;
    config.server = name();
    config.program = {kProgram, version};
    config.paths = std::move(paths);
    config.connections_per_path = std::clamp(config_.connections_per_path, 1U, kConnectionsMaximum);
    config.timing = timing_.within(std::chrono::seconds(config_.io_timeout_seconds));
    config.introduction = introduction;
    return new_client(std::move(config));
}

std::unique_ptr<rpc::Client> Server::new_nfs4_client(rpc::Introduction &introduction) {
    return new_nfs_client(program_paths(config_.nfs_port != 0 ? config_.nfs_port : kPort), kVersion4, &introduction);
}

rpc::Client &Server::use_nfs(uint16_t port) {
    auto paths = program_paths(port);
    // The port may be another one after a while without use, not while an export is in use.
    if (nfs_ == nullptr || (users_ == 0 && nfs_->config().paths != paths))
        nfs_ = new_nfs_client(std::move(paths), kVersion3);
    ++users_;
    return *nfs_;
}

void Server::release_nfs() {
    assert(users_ > 0);
    if (--users_ == 0) nfs_->close();
}

}  // namespace nfstdm::remote
