// SPDX-License-Identifier: Apache-2.0
// RPC over TLS (RFC 9289): asks the server for it, then lets the module do it.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nfstdm/base/descriptor.h"
#include "nfstdm/base/status.h"
#include "nfstdm/rpc/message/starttls.h"
#include "nfstdm/rpc/transport/tcp.h"
#include "nfstdm/rpc/transport/transport.h"
#include "nfstdm/tls/tls_module.h"

namespace nfstdm::rpc {

struct TlsSettings {
    std::string ca;           // file of trusted certificates; empty = the system's
    std::string certificate;  // file, for a server that asks for one; empty = none
    std::string key;          // file; empty = in that of the certificate
    std::string module;       // file of the module
};

// What the connections of one server share. The module and the files are looked at when the first connection is made.
class TlsContext {
  public:
    explicit TlsContext(TlsSettings settings) : settings_(std::move(settings)) {}

    using Session = std::unique_ptr<nfstdm_tls_session, void (*)(nfstdm_tls_session *)>;

    // A session on a connected socket that outlives it. names: see tls_module.h.
    Result<Session> new_session(int socket, const std::string &peer, const std::vector<std::string> &names);
    // Null before the first session.
    const nfstdm_tls_functions *functions() const { return functions_; }

  private:
    Status open();

    const TlsSettings settings_;
    const nfstdm_tls_functions *functions_ = nullptr;
    std::unique_ptr<nfstdm_tls_context, void (*)(nfstdm_tls_context *)> context_{nullptr, nullptr};
};

// The server's side of what is connected to.
struct TlsPeer {
    std::string where;               // whose sessions may be resumed: host and port
    std::vector<std::string> names;  // of which its certificate must bear one
    uint32_t program = 0;
    uint32_t version = 0;
    bool required = true;  // else the program is used in plain where it is not offered with TLS
    // Of a program that may be used in plain, for all connections to it: one was closed for the question for TLS.
    std::shared_ptr<bool> shuns_question = std::make_shared<bool>(false);
};

class TlsTransport final : public Transport {
  public:
    TlsTransport(Descriptor connected, std::shared_ptr<TlsContext> context, TlsPeer peer);

    int descriptor() const override { return tcp_.descriptor(); }
    Result<short> handshake() override;
    Result<std::size_t> receive(std::span<const iovec> places) override;
    Result<std::size_t> send(std::span<const iovec> pieces) override;
    std::size_t unacknowledged() const override;
    void close_behind() override;
    bool holds_received() const override;
    bool holds_unsent() const override;
    std::string remark() const override;

  private:
    enum class Phase : uint8_t { asking, listening, securing, secured, plain };

    Result<short> ask();
    Result<short> listen();
    Result<short> decide();
    Status unanswered(const Status &why);
    Result<short> secure();

    TcpTransport tcp_;
    const std::shared_ptr<TlsContext> context_;
    const TlsPeer peer_;
    StartTlsQuestion question_;
    std::size_t asked_ = 0;  // bytes of the question that are sent
    bool heard_ = false;     // something of the answer has come
    Phase phase_ = Phase::asking;
    TlsContext::Session session_{nullptr, nullptr};
};

}  // namespace nfstdm::rpc
