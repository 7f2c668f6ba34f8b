// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tls/module/context.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace nfstdm::tls {

namespace {

constexpr std::size_t kReadBuffer = std::size_t{64} << 10;  // ciphertext that one call of the system may bring
constexpr char kAlpn[] =
    "\x06"
    "sunrpc";  // RFC 9289 section 8.2

// For trials: tshark and its like read a capture with the keys in this file. Not for a program of raised rights.
void log_key(const SSL *, const char *line) {
    const char *name = secure_getenv("SSLKEYLOGFILE");
    if (name == nullptr || *name == '\0') return;
    const int file = open(name, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (file < 0) return;
    const std::string text = std::string(line) + '\n';
    static_cast<void>(!write(file, text.data(), text.size()));
    close(file);
}

// Nobody can be asked for the pass phrase of a key.
int no_pass_phrase(char *, int, int, void *) {
    return -1;
}

int choose_alpn(SSL *, const unsigned char **chosen, unsigned char *size, const unsigned char *offered,
                unsigned int offered_size, void *) {
    unsigned char *selected = nullptr;
    const int found = SSL_select_next_proto(&selected, size, reinterpret_cast<const unsigned char *>(kAlpn),
                                            sizeof kAlpn - 1, offered, offered_size);
    *chosen = selected;
    return found == OPENSSL_NPN_NEGOTIATED ? SSL_TLSEXT_ERR_OK : SSL_TLSEXT_ERR_ALERT_FATAL;
}

bool is_readable(const char *file, nfstdm_tls_failure &failure) {
    if (access(file, R_OK) == 0) return true;
    fill_in(failure, EINVAL, std::string(file) + ": " + std::strerror(errno));
    return false;
}

bool trust(SSL_CTX *ssl, const nfstdm_tls_settings &settings, nfstdm_tls_failure &failure) {
    if (settings.ca == nullptr) return settings.role == NFSTDM_TLS_SERVER || SSL_CTX_set_default_verify_paths(ssl) == 1;
    if (!is_readable(settings.ca, failure)) return false;
    if (SSL_CTX_load_verify_file(ssl, settings.ca) == 1) return true;
    fill_in(failure, EINVAL, std::string(settings.ca) + " holds no certificate that can be read: " + openssl_words());
    return false;
}

bool present(SSL_CTX *ssl, const nfstdm_tls_settings &settings, nfstdm_tls_failure &failure) {
    if (settings.certificate == nullptr) return true;
    const char *key = settings.key != nullptr ? settings.key : settings.certificate;
    if (!is_readable(settings.certificate, failure) || !is_readable(key, failure)) return false;
    if (SSL_CTX_use_certificate_chain_file(ssl, settings.certificate) != 1) {
        fill_in(failure, EINVAL,
                std::string(settings.certificate) + " holds no certificate that can be read: " + openssl_words());
        return false;
    }
    if (SSL_CTX_use_PrivateKey_file(ssl, key, SSL_FILETYPE_PEM) == 1 && SSL_CTX_check_private_key(ssl) == 1)
        return true;
    fill_in(failure, EINVAL,
            std::string(key) + " holds no key that can be read and fits the certificate: " + openssl_words());
    return false;
}

void set_up_client(SSL_CTX *ssl, const Callbacks &callbacks) {
    SSL_CTX_set_verify(ssl, SSL_VERIFY_PEER, callbacks.check);
    SSL_CTX_set_alpn_protos(ssl, reinterpret_cast<const unsigned char *>(kAlpn), sizeof kAlpn - 1);
    SSL_CTX_set_session_cache_mode(ssl, SSL_SESS_CACHE_CLIENT | SSL_SESS_CACHE_NO_INTERNAL);
    SSL_CTX_sess_set_new_cb(ssl, callbacks.keep);
}

void set_up_server(SSL_CTX *ssl, bool asks_for_certificate) {
    constexpr unsigned char kSessionContext[] = "nfstdm";
    SSL_CTX_set_session_id_context(ssl, kSessionContext, sizeof kSessionContext - 1);
    if (asks_for_certificate) SSL_CTX_set_verify(ssl, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    SSL_CTX_set_alpn_select_cb(ssl, choose_alpn, nullptr);
}

}  // namespace

std::string openssl_words() {
    const unsigned long code = ERR_peek_last_error();
    const char *reason = ERR_reason_error_string(code);
    if (reason != nullptr) return reason;
    return ERR_SYSTEM_ERROR(code) ? std::strerror(ERR_GET_REASON(code)) : "no reason given";
}

void fill_in(nfstdm_tls_failure &failure, int number, const std::string &what) {
    failure.number = number;
    std::snprintf(failure.text, sizeof failure.text, "%s", what.c_str());
}

std::unique_ptr<nfstdm_tls_context> new_context(const nfstdm_tls_settings &settings, const Callbacks &callbacks,
                                                nfstdm_tls_failure &failure) {
    // The process that this is loaded into may end in its own way.
    OPENSSL_init_ssl(OPENSSL_INIT_NO_ATEXIT, nullptr);
    ERR_clear_error();
    const bool is_client = settings.role == NFSTDM_TLS_CLIENT;
    auto context = std::make_unique<nfstdm_tls_context>();
    context->role = settings.role;
    context->ssl.reset(SSL_CTX_new(is_client ? TLS_client_method() : TLS_server_method()));
    SSL_CTX *ssl = context->ssl.get();
    fill_in(failure, EPROTO, "OpenSSL: " + openssl_words());
    if (ssl == nullptr || SSL_CTX_set_min_proto_version(ssl, TLS1_3_VERSION) != 1) return nullptr;
    SSL_CTX_set_options(ssl, SSL_OP_ENABLE_KTLS);
    SSL_CTX_set_mode(ssl, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_read_ahead(ssl, 1);
    SSL_CTX_set_default_read_buffer_len(ssl, kReadBuffer);
    SSL_CTX_set_default_passwd_cb(ssl, no_pass_phrase);
    SSL_CTX_set_keylog_callback(ssl, log_key);
    // A certificate that is named as trusted is, whoever signed it.
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(ssl), X509_V_FLAG_PARTIAL_CHAIN);
    if (is_client)
        set_up_client(ssl, callbacks);
    else
        set_up_server(ssl, settings.ca != nullptr);
    return trust(ssl, settings, failure) && present(ssl, settings, failure) ? std::move(context) : nullptr;
}

}  // namespace nfstdm::tls
