// SPDX-License-Identifier: Apache-2.0
// Prints the exports of a server.
#pragma once

#include <cstdint>
#include <span>

// Prints the export list of a MOUNT EXPORT reply (RFC 1813, 5.2.5) to the command's output, a line a directory. reply
// begins at the list's first word and stands in memory as it was delivered: in pieces of 4000 bytes, the first of
// which has given 32 bytes to the heads of the reply, each further one behind a head of one word. A reply that ends
// early is printed as far as it goes; a name is cut at 255 bytes. Returns 0.
int32_t tslwnfs_expout(std::span<const uint8_t> reply);
