// SPDX-License-Identifier: Apache-2.0
// A client's socket: in plain, and by TLS from a point on.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <utility>

#include "nfstdm/tls/tls_module.h"
#include "tools/loopnfsd/base/unique_fd.h"
#include "tools/loopnfsd/wire/statistics.h"

namespace loopnfsd {

struct TlsFiles {
    std::string certificate;  // empty = no TLS
    std::string key;
    std::string client_ca;  // whose certificates clients must show; empty = none
};

// What is needed to speak TLS.
class TlsService {
  public:
    using Session = std::unique_ptr<nfstdm_tls_session, void (*)(nfstdm_tls_session *)>;

    // Gives what is wrong, or nothing.
    std::string open(const TlsFiles &files);
    bool is_open() const { return context_ != nullptr; }
    const nfstdm_tls_functions &functions() const { return *functions_; }
    Session new_session(int socket);

  private:
    const nfstdm_tls_functions *functions_ = nullptr;
    std::unique_ptr<nfstdm_tls_context, void (*)(nfstdm_tls_context *)> context_{nullptr, nullptr};
};

class Stream {
  public:
    // What is given must outlive the stream.
    Stream(UniqueFd socket, TlsService &tls, Statistics &statistics)
        : socket_(std::move(socket)), tls_(tls), statistics_(statistics) {}

    explicit operator bool() const { return static_cast<bool>(socket_); }
    int get() const { return socket_.get(); }
    void close();

    // What comes from now on is TLS. False when that can not be.
    bool start_tls();

    // Bytes moved; 0 = none for now, -1 = the connection is at its end.
    ssize_t receive(std::span<std::byte> place);
    ssize_t send(std::span<const iovec> pieces);
    // Poll events that it waits for besides those of its owner, and what to do when they happen; false as -1 above.
    short waits_for() const { return waits_for_; }
    bool go_on() { return ready_ ? send({}) >= 0 : shake_hands(); }
    bool is_shaking_hands() const { return !ready_; }
    // Whether there is more to receive of which the socket does not tell.
    bool holds_received() const;

  private:
    bool shake_hands();
    void count();

    UniqueFd socket_;
    TlsService &tls_;
    Statistics &statistics_;
    TlsService::Session session_{nullptr, nullptr};
    bool ready_ = true;  // for bytes of ours; false in a handshake
    short waits_for_ = 0;
};

}  // namespace loopnfsd
