// SPDX-License-Identifier: Apache-2.0
// What goes around a request on the wire: the call's header on the way out, made anew for each transmission, and the
// reply's on the way back.
#pragma once

#include <array>
#include <cstddef>
#include <span>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/request.h"

namespace nfstdm::rpc {

// Makes the request ready for one transmission; program and sequence must be set.
Status seal(Request &request);

// The pieces of a sealed request, in the order in which they are sent.
std::array<std::span<const std::byte>, 4> pieces(const Request &request);
std::size_t wire_size(const Request &request);

// A reply is there: judges it and leaves the results in the request, or the reason why there are none in its status.
// whole is false for a record that did not hold together.
void open_reply(Request &request, bool whole);

}  // namespace nfstdm::rpc
