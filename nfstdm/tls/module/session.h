// SPDX-License-Identifier: Apache-2.0
// TLS on one connection.
#pragma once

#include <openssl/ssl.h>

#include <cstddef>
#include <deque>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "nfstdm/tls/module/context.h"
#include "nfstdm/tls/module/socket_bio.h"
#include "nfstdm/tls/tls_module.h"

struct nfstdm_tls_session {
  public:
    nfstdm_tls_session(nfstdm_tls_context &context, int socket, std::string peer, std::vector<std::string> names);
    ~nfstdm_tls_session();
    nfstdm_tls_session(const nfstdm_tls_session &) = delete;
    nfstdm_tls_session &operator=(const nfstdm_tls_session &) = delete;

    bool start(nfstdm_tls_failure &failure);
    // See tls_module.h for these.
    int handshake(nfstdm_tls_failure &failure);
    ssize_t receive(const iovec *places, std::size_t count, nfstdm_tls_failure &failure);
    ssize_t send(const iovec *pieces, std::size_t count, nfstdm_tls_failure &failure);
    std::size_t unsent() const { return unsent_.size(); }
    bool holds_received() const { return SSL_has_pending(ssl_.get()) == 1; }
    std::string describe() const;

    // Where the sessions go that the peer lets us resume.
    std::deque<nfstdm::tls::ResumableSession> &resumable() { return context_.sessions[peer_]; }
    // Whether the peer's certificate is for one of the names; keeps the words of what is wrong.
    bool is_expected(X509 *certificate);
    void distrust(std::string why) { distrust_ = std::move(why); }

  private:
    bool resume();
    bool check_protocol(nfstdm_tls_failure &failure);
    bool sends_by_kernel() const;
    bool receives_by_kernel() const;
    int failed(int result, const char *during, nfstdm_tls_failure &failure);
    struct Cursor {
        std::size_t piece = 0;
        std::size_t skip = 0;  // of the piece

        void pass(std::span<const iovec> pieces, std::size_t size);
    };
    ssize_t write_record(std::span<const iovec> pieces, Cursor &cursor, nfstdm_tls_failure &failure);
    ssize_t write(const void *bytes, std::size_t size, nfstdm_tls_failure &failure);

    nfstdm_tls_context &context_;
    const int socket_;
    const std::string peer_;
    const std::vector<std::string> names_;
    nfstdm::tls::Unsent unsent_;
    std::unique_ptr<SSL, nfstdm::tls::Freeing<SSL_free>> ssl_;
    std::string distrust_;  // why the peer's certificate is not taken
    std::vector<unsigned char> record_;
};

namespace nfstdm::tls {

// Of every context whose connections are such sessions.
Callbacks session_callbacks();

}  // namespace nfstdm::tls
