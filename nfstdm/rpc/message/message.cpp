// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/message/message.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/xdr/reader.h"

namespace nfstdm::rpc {

namespace {

using xdr::padding_of;

// auth_stat, RFC 5531 section 9.
const char *auth_words(uint32_t state) {
    static constexpr std::array<const char *, 8> kWords = {
        "no reason given",           "bad credential",
        "credential rejected",       "bad verifier",
        "verifier rejected",         "the security flavour or the source port is too weak",
        "invalid response verifier", "no reason given",
    };
    return kWords[std::min<std::size_t>(state, kWords.size() - 1)];
}

Status malformed() {
    return {EIO, "the server's answer is not a well-formed RPC reply"};
}

Status denied(xdr::Reader &reader, std::optional<uint32_t> &auth_status) {
    uint32_t reason = 0;
    uint32_t detail = 0;
    if (!reader.get_u32(reason) || !reader.get_u32(detail)) return malformed();
    if (reason == static_cast<uint32_t>(RejectStatus::rpc_mismatch))
        return {EPROTONOSUPPORT, "the server does not speak RPC version 2", Condition::not_offered};
    if (reason != static_cast<uint32_t>(RejectStatus::auth_error)) return malformed();
    auth_status = detail;
    return {EACCES, std::string("the server refuses the identity presented: ") + auth_words(detail),
            Cause{Cause::Source::rpc, detail, Condition::credential}};
}

Cause cause_of(uint32_t accept_stat, Condition condition = Condition::none) {
    return {Cause::Source::rpc, accept_stat, condition};
}

Status accepted(uint32_t state, xdr::Reader &reader) {
    switch (static_cast<AcceptStatus>(state)) {
        case AcceptStatus::success:
            return {};
        case AcceptStatus::program_unavailable:
            return {EPROTONOSUPPORT, "the server does not offer the program", cause_of(state, Condition::not_offered)};
        case AcceptStatus::procedure_unavailable:
            return {ENOTSUP, "the server does not offer the procedure", cause_of(state, Condition::no_operation)};
        case AcceptStatus::garbage_arguments:
            return {EIO, "the server could not read the request", cause_of(state)};
        case AcceptStatus::system_error:
            return {EIO, "the server ran out of something (RPC system error)", cause_of(state)};
        case AcceptStatus::program_mismatch: {
            uint32_t low = 0;
            uint32_t high = 0;
            if (!reader.get_u32(low) || !reader.get_u32(high)) return malformed();
            return {EPROTONOSUPPORT,
                    "the server offers versions " + std::to_string(low) + " to " + std::to_string(high) +
                        " of the program only",
                    cause_of(state, Condition::not_offered)};
        }
    }
    return malformed();
}

}  // namespace

void begin_call(xdr::Writer &writer, uint32_t xid, const Program &program, uint32_t procedure) {
    writer.put_u32(0);  // record mark
    writer.put_u32(xid);
    writer.put_u32(kCall);
    writer.put_u32(kRpcVersion);
    writer.put_u32(program.number);
    writer.put_u32(program.version);
    writer.put_u32(procedure);
}

void mark_call(std::span<std::byte> head, std::size_t trailing) {
    const std::size_t record = head.size() - xdr::kWord + trailing;
    xdr::store_u32(head, kLastFragment | static_cast<uint32_t>(record));
}

std::size_t results_position(std::span<const std::byte> known) {
    constexpr std::size_t kFixed = 6 * xdr::kWord;  // with an empty verifier
    if (known.size() < kFixed) return kFixed;
    xdr::Reader reader(known);
    uint32_t xid = 0, kind = 0, state = 0, flavour = 0, length = 0;
    if (!reader.get_u32(xid) || !reader.get_u32(kind) || !reader.get_u32(state) || !reader.get_u32(flavour) ||
        !reader.get_u32(length))
        return kWholeRecord;
    if (kind != kReply || state != kMessageAccepted || length > kAuthBodyMaximum) return kWholeRecord;
    const std::size_t position = kFixed + length + padding_of(length);
    if (known.size() < position) return position;
    uint32_t accept = 0;
    const bool success = reader.skip(length + padding_of(length)) && reader.get_u32(accept) && accept == 0;
    return success ? position : kWholeRecord;
}

ReplyHeader read_reply_header(std::span<const std::byte> reply) {
    xdr::Reader reader(reply);
    ReplyHeader header;
    header.results = reply.size();
    header.status = malformed();
    uint32_t xid = 0, kind = 0, state = 0;
    if (!reader.get_u32(xid) || !reader.get_u32(kind) || !reader.get_u32(state) || kind != kReply) return header;
    if (state == kMessageDenied) header.status = denied(reader, header.auth_status);
    if (state != kMessageAccepted) return header;
    Verifier verifier;
    uint32_t accept = 0;
    if (!reader.get_u32(verifier.flavour) || !reader.get_opaque(verifier.body, kAuthBodyMaximum) ||
        !reader.get_u32(accept))
        return header;
    header.verifier = verifier;
    header.results = reply.size() - reader.left();
    header.status = accepted(accept, reader);
    return header;
}

}  // namespace nfstdm::rpc
