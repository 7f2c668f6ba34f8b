// SPDX-License-Identifier: Apache-2.0
// A socket as OpenSSL sees it, which takes every record that is written: what the kernel has no room for waits here, so
// that a record which has begun does not depend on its plain text any more. It never raises SIGPIPE.
#pragma once

#include <openssl/bio.h>

#include <cstddef>
#include <vector>

namespace nfstdm::tls {

constexpr std::size_t kGathered = std::size_t{64} << 10;

// What the socket did not take yet. Must outlive the BIO that it is given to.
struct Unsent {
    bool gathers = false;  // records wait for flush(), until there are so many bytes
    std::vector<unsigned char> bytes;
    std::size_t sent = 0;
    int error = 0;  // errno that ended the connection

    std::size_t size() const { return bytes.size() - sent; }
};

// Null when memory is short. The socket stays the caller's.
BIO *new_socket_bio(int socket, Unsent &unsent);

// Sends what waits, as far as there is room.
void flush(int socket, Unsent &unsent);

}  // namespace nfstdm::tls
