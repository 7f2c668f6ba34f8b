// SPDX-License-Identifier: Apache-2.0
// Call and reply headers of ONC RPC (RFC 5531 section 9).
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/xdr/words.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::rpc {

struct Program {
    uint32_t number = 0;
    uint32_t version = 0;
};

// The largest header a reply can have: xid, kind, state, verifier of at most 400 bytes, accept state and the two
// versions that go with a mismatch.
constexpr std::size_t kReplyHeaderMaximum = 6 * xdr::kWord + 400 + 2 * xdr::kWord;

// A record: room for its mark, then the call's header as far as credential and verifier, which follow.
void begin_call(xdr::Writer &writer, uint32_t xid, const Program &program, uint32_t procedure);

// Puts the mark in front of a call's head, which is followed on the wire by trailing bytes.
void mark_call(std::span<std::byte> head, std::size_t trailing);

// More bytes than there are: "to the end of the record".
constexpr std::size_t kWholeRecord = std::numeric_limits<std::size_t>::max();

// Where the results begin in a reply of which only the first bytes are known: that position, or a position beyond
// what is known when more of the header must be seen first, or kWholeRecord when the reply holds no results.
std::size_t results_position(std::span<const std::byte> known);

// What shows that a reply is the server's; the body lives as long as the reply.
struct Verifier {
    uint32_t flavour = 0;
    std::span<const std::byte> body;
};

struct ReplyHeader {
    // On failure what the server refused: ENOTSUP for a procedure it does not have, EACCES for an identity it does not
    // take, EIO for the rest.
    Status status;
    std::size_t results = 0;              // where the procedure's results begin, on success
    std::optional<Verifier> verifier;     // of a reply that accepts the identity, whatever it says of the call
    std::optional<uint32_t> auth_status;  // why the identity is not taken
};

// Judges a whole reply.
ReplyHeader read_reply_header(std::span<const std::byte> reply);

}  // namespace nfstdm::rpc
