// SPDX-License-Identifier: Apache-2.0
// Non-blocking TCP sockets towards a server.
#pragma once

#include <cstddef>
#include <string>

#include "nfstdm/base/descriptor.h"
#include "nfstdm/base/status.h"
#include "nfstdm/rpc/transport/address.h"

namespace nfstdm::rpc {

enum class SourcePort { any, reserved };

// Starts to connect; the socket becomes writable when that succeeded or failed (then see connect_result). local is the
// host name or address to bind, empty for any. A reserved source port (below 1024) is what servers ask of clients they
// trust; where the process may not bind one, any port is taken, and the server decides.
Result<Descriptor> start_connect(const Address &to, const std::string &local, SourcePort source);

// How a connect that was started ended.
Status connect_result(int descriptor);

// Bytes handed to the socket that the peer has not acknowledged yet.
std::size_t unacknowledged(int descriptor);

// Lets the system hold so many bytes at most that it could not send yet; what is beyond that stays with the caller.
void limit_unsent(int descriptor, std::size_t bytes);

// Closes in a way that frees the source port at once: an orderly close would keep a reserved port, of which there are
// few, out of use for a minute. Whatever is still unsent is dropped.
void close_now(Descriptor &socket);

// Closes behind what was sent, which still arrives; the source port is free as soon as it has.
void close_behind(Descriptor &socket);

}  // namespace nfstdm::rpc
