// SPDX-License-Identifier: Apache-2.0
// Call and reply headers of ONC RPC (RFC 5531 section 9).
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <span>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/xdr/words.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::rpc {

// The largest header a reply can have: xid, kind, state, verifier of at most 400 bytes, accept state and the two
// versions that go with a mismatch.
constexpr std::size_t kReplyHeaderMaximum = 6 * xdr::kWord + 400 + 2 * xdr::kWord;

// A record: room for its mark, then the call's header. The mark and the xid are put in by seal().
void begin_call(xdr::Writer &writer, uint32_t program, uint32_t version, uint32_t procedure,
                std::span<const std::byte> credential);

// Completes a call's head, which is followed on the wire by trailing bytes of data and padding.
void seal_call(std::span<std::byte> head, uint32_t xid, std::size_t trailing);

// More bytes than there are: "to the end of the record".
constexpr std::size_t kWholeRecord = std::numeric_limits<std::size_t>::max();

// Where the results begin in a reply of which only the first bytes are known: that position, or a position beyond
// what is known when more of the header must be seen first, or kWholeRecord when the reply holds no results.
std::size_t results_position(std::span<const std::byte> known);

// Judges a whole reply. On success results is where the procedure's results begin; on failure the status says what the
// server refused: ENOTSUP for a procedure it does not have, EACCES for an identity it does not take, EIO for the rest.
Status read_reply_header(std::span<const std::byte> reply, std::size_t &results);

}  // namespace nfstdm::rpc
