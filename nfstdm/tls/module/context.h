// SPDX-License-Identifier: Apache-2.0
// What the connections of one server share: the certificates, and the sessions that further connections resume.
#pragma once

#include <openssl/ssl.h>

#include <deque>
#include <map>
#include <memory>
#include <string>

#include "nfstdm/tls/tls_module.h"

namespace nfstdm::tls {

template <auto Free>
struct Freeing {
    template <class Object>
    void operator()(Object *object) const {
        Free(object);
    }
};

using ResumableSession = std::unique_ptr<SSL_SESSION, Freeing<SSL_SESSION_free>>;

// The words of OpenSSL's latest failure, and an errno.
void fill_in(nfstdm_tls_failure &failure, int number, const std::string &what);
std::string openssl_words();

}  // namespace nfstdm::tls

struct nfstdm_tls_context {
    std::unique_ptr<SSL_CTX, nfstdm::tls::Freeing<SSL_CTX_free>> ssl;
    nfstdm_tls_role role = NFSTDM_TLS_CLIENT;
    // The kernel's TLS broke a connection: before Linux 6.14 it can not change keys, which the peer may want.
    bool shuns_kernel = false;
    // By peer. Each is used once, so that nobody can tell that two connections have one client (RFC 8446 appendix C.4).
    std::map<std::string, std::deque<nfstdm::tls::ResumableSession>> sessions;
};

namespace nfstdm::tls {

// What OpenSSL asks a client's connections.
struct Callbacks {
    int (*check)(int trusted, X509_STORE_CTX *store);    // about each certificate of the peer
    int (*keep)(SSL *connection, SSL_SESSION *session);  // a session to resume
};

// Null, and why, when the files do not serve.
std::unique_ptr<nfstdm_tls_context> new_context(const nfstdm_tls_settings &settings, const Callbacks &callbacks,
                                                nfstdm_tls_failure &failure);

}  // namespace nfstdm::tls
