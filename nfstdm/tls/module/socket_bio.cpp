// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/tls/module/socket_bio.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <span>

namespace nfstdm::tls {

namespace {

using Bytes = std::span<const unsigned char>;

// Bytes that the socket took; the rest may go later, unless error says otherwise.
std::size_t send_some(int socket, Bytes bytes, int &error) {
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t got = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && errno != EAGAIN) error = errno;
        if (got <= 0) break;
        sent += static_cast<std::size_t>(got);
    }
    return sent;
}

// While it lives, a SIGPIPE that this thread causes does not happen; one that waited already stays.
class NoBrokenPipe {
  public:
    NoBrokenPipe() {
        sigemptyset(&signal_);
        sigaddset(&signal_, SIGPIPE);
        sigset_t waiting;
        sigpending(&waiting);
        had_ = sigismember(&waiting, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &signal_, &before_);
    }
    ~NoBrokenPipe() {
        const timespec at_once{};
        if (!had_) sigtimedwait(&signal_, nullptr, &at_once);
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    NoBrokenPipe(const NoBrokenPipe &) = delete;
    NoBrokenPipe &operator=(const NoBrokenPipe &) = delete;

  private:
    sigset_t signal_{};
    sigset_t before_{};
    bool had_ = false;
};

Unsent &unsent_of(BIO *bio) {
    return *static_cast<Unsent *>(BIO_get_app_data(bio));
}

int socket_of(BIO *bio) {
    return static_cast<int>(BIO_get_fd(bio, nullptr));
}

// Where the kernel encrypts, OpenSSL marks a record of another kind than data with the first of the flags that bio.h
// reserves for that.
bool is_marked(BIO *bio) {
    constexpr int kMark = 0x1000;
    return BIO_test_flags(bio, kMark) != 0;
}

int write_marked(BIO *bio, const char *bytes, int size) {
    const NoBrokenPipe guard;
    return BIO_meth_get_write(BIO_s_socket())(bio, bytes, size);
}

int write(BIO *bio, const char *bytes, int size) {
    BIO_clear_retry_flags(bio);
    Unsent &unsent = unsent_of(bio);
    const Bytes record(reinterpret_cast<const unsigned char *>(bytes), static_cast<std::size_t>(size));
    if (unsent.gathers && unsent.error == 0 && !is_marked(bio)) {
        unsent.bytes.insert(unsent.bytes.end(), record.begin(), record.end());
        return size;
    }
    flush(socket_of(bio), unsent);
    if (unsent.error == 0 && is_marked(bio) && unsent.size() == 0) return write_marked(bio, bytes, size);
    const std::size_t sent = unsent.size() == 0 ? send_some(socket_of(bio), record, unsent.error) : 0;
    if (unsent.error != 0) {
        errno = unsent.error;
        return -1;
    }
    if (is_marked(bio)) {  // can not wait here, where its mark would be lost
        BIO_set_retry_write(bio);
        return -1;
    }
    unsent.bytes.insert(unsent.bytes.end(), record.begin() + static_cast<std::ptrdiff_t>(sent), record.end());
    return size;
}

// OpenSSL's own socket but for the writing, so that it finds there what it needs to use the kernel's TLS.
BIO_METHOD *new_method() {
    const BIO_METHOD *socket = BIO_s_socket();
    BIO_METHOD *method = BIO_meth_new(BIO_TYPE_SOCKET, "nfstdm socket");
    if (method == nullptr) return nullptr;
    BIO_meth_set_create(method, BIO_meth_get_create(socket));
    BIO_meth_set_destroy(method, BIO_meth_get_destroy(socket));
    BIO_meth_set_read(method, BIO_meth_get_read(socket));
    BIO_meth_set_ctrl(method, BIO_meth_get_ctrl(socket));
    BIO_meth_set_write(method, write);
    return method;
}

}  // namespace

BIO *new_socket_bio(int socket, Unsent &unsent) {
    static BIO_METHOD *const method = new_method();
    BIO *bio = method == nullptr ? nullptr : BIO_new(method);
    if (bio == nullptr) return nullptr;
    BIO_set_fd(bio, socket, BIO_NOCLOSE);
    // Where the kernel has no TLS of its own this fails, and all is done here.
    static_cast<void>(setsockopt(socket, IPPROTO_TCP, TCP_ULP, "tls", sizeof "tls"));
    BIO_set_app_data(bio, &unsent);
    return bio;
}

void flush(int socket, Unsent &unsent) {
    if (unsent.size() == 0 || unsent.error != 0) return;
    unsent.sent += send_some(socket, Bytes(unsent.bytes).subspan(unsent.sent), unsent.error);
    if (unsent.size() > 0) return;
    unsent.bytes.clear();
    unsent.sent = 0;
}

}  // namespace nfstdm::tls
