// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tls/module/session.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <span>
#include <string_view>
#include <utility>

namespace {

using nfstdm::tls::fill_in;
using nfstdm::tls::openssl_words;

constexpr std::size_t kRecord = SSL3_RT_MAX_PLAIN_LENGTH;  // RFC 8446 section 5.1

bool is_address(const std::string &name) {
    ASN1_OCTET_STRING *address = a2i_IPADDRESS(name.c_str());
    ASN1_OCTET_STRING_free(address);
    return address != nullptr;
}

// A name is only looked for among those that are meant to name hosts (RFC 9525 section 2).
bool bears(X509 *certificate, const std::string &name) {
    constexpr unsigned kRules = X509_CHECK_FLAG_NEVER_CHECK_SUBJECT | X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS;
    return is_address(name) ? X509_check_ip_asc(certificate, name.c_str(), 0) == 1
                            : X509_check_host(certificate, name.data(), name.size(), kRules, nullptr) == 1;
}

// Alerts are what the peer says (RFC 8446 section 6).
bool is_alert(unsigned long code) {
    return ERR_GET_LIB(code) == ERR_LIB_SSL && ERR_GET_REASON(code) >= SSL_AD_REASON_OFFSET;
}

bool is_end(unsigned long code) {
    return ERR_GET_LIB(code) == ERR_LIB_SSL && ERR_GET_REASON(code) == SSL_R_UNEXPECTED_EOF_WHILE_READING;
}

nfstdm_tls_session *session_of(const SSL *ssl) {
    return static_cast<nfstdm_tls_session *>(SSL_get_app_data(ssl));
}

int check_peer(int trusted, X509_STORE_CTX *store) {
    auto *ssl = static_cast<SSL *>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    nfstdm_tls_session *session = session_of(ssl);
    if (trusted != 1) {
        session->distrust(X509_verify_cert_error_string(X509_STORE_CTX_get_error(store)));
        return 0;
    }
    const bool is_peers_own = X509_STORE_CTX_get_error_depth(store) == 0;
    if (!is_peers_own || session->is_expected(X509_STORE_CTX_get_current_cert(store))) return 1;
    X509_STORE_CTX_set_error(store, X509_V_ERR_HOSTNAME_MISMATCH);
    return 0;
}

int keep_session(SSL *ssl, SSL_SESSION *session) {
    constexpr std::size_t kSessionsPerPeer = 8;
    auto &sessions = session_of(ssl)->resumable();
    sessions.emplace_back(session);
    if (sessions.size() > kSessionsPerPeer) sessions.pop_front();
    return 1;  // it is ours now
}

}  // namespace

nfstdm::tls::Callbacks nfstdm::tls::session_callbacks() {
    return {check_peer, keep_session};
}

nfstdm_tls_session::nfstdm_tls_session(nfstdm_tls_context &context, int socket, std::string peer,
                                       std::vector<std::string> names)
    : context_(context), socket_(socket), peer_(std::move(peer)), names_(std::move(names)), record_(kRecord) {}

nfstdm_tls_session::~nfstdm_tls_session() {
    // What was cut off can still be resumed; nothing is said to the peer, whose connection may be another process's.
    if (ssl_ != nullptr) SSL_set_shutdown(ssl_.get(), SSL_SENT_SHUTDOWN | SSL_RECEIVED_SHUTDOWN);
}

bool nfstdm_tls_session::start(nfstdm_tls_failure &failure) {
    ERR_clear_error();
    ssl_.reset(SSL_new(context_.ssl.get()));
    BIO *bio = ssl_ == nullptr ? nullptr : nfstdm::tls::new_socket_bio(socket_, unsent_);
    if (bio == nullptr) {
        fill_in(failure, ENOMEM, "OpenSSL: " + openssl_words());
        return false;
    }
    if (context_.shuns_kernel) SSL_clear_options(ssl_.get(), SSL_OP_ENABLE_KTLS);
    SSL_set_bio(ssl_.get(), bio, bio);
    SSL_set_app_data(ssl_.get(), this);
    if (context_.role == NFSTDM_TLS_SERVER) {
        SSL_set_accept_state(ssl_.get());
        return true;
    }
    SSL_set_connect_state(ssl_.get());
    const auto name = std::find_if_not(names_.begin(), names_.end(), is_address);
    if (name != names_.end()) SSL_set_tlsext_host_name(ssl_.get(), const_cast<char *>(name->c_str()));
    return resume();
}

bool nfstdm_tls_session::resume() {
    auto &sessions = resumable();
    while (!sessions.empty()) {
        const auto session = std::move(sessions.back());
        sessions.pop_back();
        if (SSL_SESSION_is_resumable(session.get()) == 1 && SSL_set_session(ssl_.get(), session.get()) == 1) break;
    }
    return true;
}

bool nfstdm_tls_session::is_expected(X509 *certificate) {
    if (std::any_of(names_.begin(), names_.end(), [&](const auto &name) { return bears(certificate, name); }))
        return true;
    std::string wanted;
    for (const std::string &name : names_)
        wanted += (wanted.empty() ? "" : " or ") + name;
    distrust("it is for another host than " + wanted);
    return false;
}

// -1 and the words, unless the call is to be made again; then 0.
int nfstdm_tls_session::failed(int result, const char *during, nfstdm_tls_failure &failure) {
    const int system_error = errno;
    const int kind = SSL_get_error(ssl_.get(), result);
    if (kind == SSL_ERROR_WANT_READ || kind == SSL_ERROR_WANT_WRITE) return 0;
    const unsigned long code = ERR_peek_last_error();
    const std::string place = std::string(" (") + during + ")";
    if (!distrust_.empty())
        fill_in(failure, EKEYREJECTED, "the server's certificate is not trusted: " + distrust_);
    else if (unsent_.error != 0)
        fill_in(failure, unsent_.error, std::string(during) + ": " + std::strerror(unsent_.error));
    else if (kind == SSL_ERROR_ZERO_RETURN || is_end(code) || (kind == SSL_ERROR_SYSCALL && system_error == 0))
        fill_in(failure, ECONNRESET, "the other side closed the connection" + place);
    else if (kind == SSL_ERROR_SYSCALL)
        fill_in(failure, system_error, std::string(during) + ": " + std::strerror(system_error));
    else if (is_alert(code))
        fill_in(failure, EKEYREJECTED, "the other side refuses: " + openssl_words());
    else {
        fill_in(failure, EPROTO, std::string(during) + ": " + openssl_words());
        if (sends_by_kernel() || receives_by_kernel()) context_.shuns_kernel = true;
    }
    return -1;
}

// Both may do without a choice, but what is chosen must be what was offered (RFC 7301 section 3.2).
bool nfstdm_tls_session::check_protocol(nfstdm_tls_failure &failure) {
    constexpr std::string_view kOurs = "sunrpc";
    const unsigned char *chosen = nullptr;
    unsigned size = 0;
    SSL_get0_alpn_selected(ssl_.get(), &chosen, &size);
    if (size == 0 || std::string_view(reinterpret_cast<const char *>(chosen), size) == kOurs) return true;
    fill_in(failure, EPROTO, "the other side speaks another protocol than sunrpc");
    return false;
}

int nfstdm_tls_session::handshake(nfstdm_tls_failure &failure) {
    nfstdm::tls::flush(socket_, unsent_);
    ERR_clear_error();
    errno = 0;
    const int result = SSL_do_handshake(ssl_.get());
    if (result != 1 && failed(result, "TLS handshake", failure) != 0) return -1;
    if (result != 1) return unsent() > 0 ? POLLIN | POLLOUT : POLLIN;
    if (!check_protocol(failure)) return -1;
    return unsent() > 0 ? POLLOUT : 0;
}

ssize_t nfstdm_tls_session::receive(const iovec *places, std::size_t count, nfstdm_tls_failure &failure) {
    std::size_t total = 0;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t filled = 0; filled < places[i].iov_len;) {
            std::size_t got = 0;
            ERR_clear_error();
            errno = 0;
            const int result = SSL_read_ex(ssl_.get(), static_cast<unsigned char *>(places[i].iov_base) + filled,
                                           places[i].iov_len - filled, &got);
            // What came before the end counts first; the end shows again.
            if (result != 1) return total > 0 ? static_cast<ssize_t>(total) : failed(result, "receive", failure);
            filled += got;
            total += got;
        }
    }
    return static_cast<ssize_t>(total);
}

ssize_t nfstdm_tls_session::write(const void *bytes, std::size_t size, nfstdm_tls_failure &failure) {
    std::size_t taken = 0;
    ERR_clear_error();
    errno = 0;
    const int result = SSL_write_ex(ssl_.get(), bytes, size, &taken);
    return result == 1 ? static_cast<ssize_t>(taken) : failed(result, "send", failure);
}

void nfstdm_tls_session::Cursor::pass(std::span<const iovec> pieces, std::size_t size) {
    while (piece < pieces.size() && size >= pieces[piece].iov_len - skip) {
        size -= pieces[piece++].iov_len - skip;
        skip = 0;
    }
    skip += size;
}

// A full record, as far as there is something: of a large piece as it is, of small ones put together. The cursor moves
// behind what was taken.
ssize_t nfstdm_tls_session::write_record(std::span<const iovec> pieces, Cursor &cursor, nfstdm_tls_failure &failure) {
    const auto *record = static_cast<const unsigned char *>(pieces[cursor.piece].iov_base) + cursor.skip;
    std::size_t size = std::min(kRecord, pieces[cursor.piece].iov_len - cursor.skip);
    if (size < kRecord) {
        std::memcpy(record_.data(), record, size);
        record = record_.data();
        for (std::size_t next = cursor.piece + 1; size < kRecord && next < pieces.size(); ++next) {
            const std::size_t more = std::min(kRecord - size, pieces[next].iov_len);
            std::memcpy(record_.data() + size, pieces[next].iov_base, more);
            size += more;
        }
    }
    const ssize_t taken = write(record, size, failure);
    if (taken > 0) cursor.pass(pieces, static_cast<std::size_t>(taken));
    return taken;
}

// Some records leave with one call of the system.
ssize_t nfstdm_tls_session::send(const iovec *pieces, std::size_t count, nfstdm_tls_failure &failure) {
    nfstdm::tls::flush(socket_, unsent_);
    std::size_t total = 0;
    Cursor cursor;
    ssize_t taken = 1;
    while (taken > 0 && cursor.piece < count && unsent() == 0 && unsent_.error == 0) {
        unsent_.gathers = true;
        while (taken > 0 && cursor.piece < count && unsent() < nfstdm::tls::kGathered) {
            taken = write_record({pieces, count}, cursor, failure);
            total += static_cast<std::size_t>(std::max<ssize_t>(taken, 0));
        }
        unsent_.gathers = false;
        nfstdm::tls::flush(socket_, unsent_);
    }
    if (taken < 0) return -1;
    if (unsent_.error == 0) return static_cast<ssize_t>(total);
    fill_in(failure, unsent_.error, std::string("send: ") + std::strerror(unsent_.error));
    return -1;
}

bool nfstdm_tls_session::sends_by_kernel() const {
    return BIO_get_ktls_send(SSL_get_wbio(ssl_.get()));
}

bool nfstdm_tls_session::receives_by_kernel() const {
    return BIO_get_ktls_recv(SSL_get_rbio(ssl_.get()));
}

std::string nfstdm_tls_session::describe() const {
    SSL *ssl = ssl_.get();
    std::string text = std::string(SSL_get_version(ssl)) + ", " + SSL_get_cipher_name(ssl);
    if (SSL_session_reused(ssl) == 1) text += ", session resumed";
    const bool sends = sends_by_kernel();
    const bool receives = receives_by_kernel();
    if (sends && receives) return text + ", by the kernel";
    if (sends) return text + ", by OpenSSL, sending by the kernel";
    return text + (receives ? ", by OpenSSL, receiving by the kernel" : ", by OpenSSL");
}
