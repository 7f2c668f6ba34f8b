// SPDX-License-Identifier: Apache-2.0
// The module's C face.
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "nfstdm/tls/module/context.h"
#include "nfstdm/tls/module/session.h"
#include "nfstdm/tls/tls_module.h"

namespace {

nfstdm_tls_context *new_context(const nfstdm_tls_settings *settings, nfstdm_tls_failure *failure) {
    return nfstdm::tls::new_context(*settings, nfstdm::tls::session_callbacks(), *failure).release();
}

void free_context(nfstdm_tls_context *context) {
    delete context;
}

nfstdm_tls_session *new_session(nfstdm_tls_context *context, int socket, const char *peer, const char *const *names,
                                nfstdm_tls_failure *failure) {
    std::vector<std::string> known;
    for (; names != nullptr && *names != nullptr; ++names)
        known.emplace_back(*names);
    auto session =
        std::make_unique<nfstdm_tls_session>(*context, socket, peer == nullptr ? "" : peer, std::move(known));
    return session->start(*failure) ? session.release() : nullptr;
}

void free_session(nfstdm_tls_session *session) {
    delete session;
}

int handshake(nfstdm_tls_session *session, nfstdm_tls_failure *failure) {
    return session->handshake(*failure);
}

ssize_t receive(nfstdm_tls_session *session, const iovec *places, size_t count, nfstdm_tls_failure *failure) {
    return session->receive(places, count, *failure);
}

ssize_t send(nfstdm_tls_session *session, const iovec *pieces, size_t count, nfstdm_tls_failure *failure) {
    return session->send(pieces, count, *failure);
}

size_t unsent(const nfstdm_tls_session *session) {
    return session->unsent();
}

int holds_received(const nfstdm_tls_session *session) {
    return session->holds_received() ? 1 : 0;
}

void describe(const nfstdm_tls_session *session, char *text, size_t size) {
    std::snprintf(text, size, "%s", session->describe().c_str());
}

constexpr nfstdm_tls_functions kFunctions = {
    NFSTDM_TLS_VERSION, new_context, free_context, new_session, free_session, handshake, receive, send, unsent,
    holds_received,     describe,
};

}  // namespace

__attribute__((visibility("default"))) const nfstdm_tls_functions *nfstdm_tls_module(void) {
    return &kFunctions;
}
