// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/rpc/message/starttls.h"

#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>

#include "nfstdm/rpc/message/constants.h"
#include "nfstdm/rpc/message/message.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/words.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::rpc {

namespace {

constexpr std::string_view kStartTls = "STARTTLS";

Status bad_answer(const char *what) {
    return {EIO, std::string("the answer to the question for TLS ") + what};
}

std::vector<std::byte> make_call(uint32_t program, uint32_t version, uint32_t xid) {
    xdr::Writer writer;
    begin_call(writer, xid, {program, version}, 0);
    for (const uint32_t word : {kAuthTls, 0U, kAuthNone, 0U})  // an empty credential and an empty verifier
        writer.put_u32(word);
    auto call = writer.take();
    mark_call(call, 0);
    return call;
}

bool is_starttls(uint32_t flavour, std::span<const std::byte> verifier) {
    return flavour == kAuthNone &&
           std::equal(verifier.begin(), verifier.end(), kStartTls.begin(), kStartTls.end(),
                      [](std::byte one, char other) { return one == static_cast<std::byte>(other); });
}

}  // namespace

StartTlsQuestion::StartTlsQuestion(uint32_t program, uint32_t version, uint32_t xid)
    : xid_(xid), call_(make_call(program, version, xid)) {}

std::size_t StartTlsQuestion::missing() const {
    if (record_.size() < record_size_) return record_size_ - record_.size();
    return last_ ? 0 : xdr::kWord - mark_.size();
}

Status StartTlsQuestion::take(std::span<const std::byte> bytes) {
    if (record_.size() < record_size_) {
        record_.insert(record_.end(), bytes.begin(), bytes.end());
        return {};
    }
    mark_.insert(mark_.end(), bytes.begin(), bytes.end());
    return mark_.size() < xdr::kWord ? Status{} : on_mark();
}

Status StartTlsQuestion::on_mark() {
    uint32_t mark = 0;
    xdr::Reader(mark_).get_u32(mark);
    mark_.clear();
    last_ = (mark & kLastFragment) != 0;
    const std::size_t size = mark & ~kLastFragment;
    // Empty fragments could go on for ever.
    if (size == 0 && !last_) return bad_answer("holds an empty record fragment");
    record_size_ += size;
    return record_size_ <= kReplyHeaderMaximum ? Status{} : bad_answer("is larger than any such answer");
}

Result<bool> StartTlsQuestion::offered() const {
    xdr::Reader reader(record_);
    uint32_t xid = 0, kind = 0, state = 0;
    if (!reader.get_u32(xid) || !reader.get_u32(kind) || !reader.get_u32(state) || xid != xid_ || kind != kReply)
        return bad_answer("is no reply to it");
    uint32_t first = 0;
    if (state == kMessageDenied) {
        const bool for_flavour =
            reader.get_u32(first) && first == static_cast<uint32_t>(RejectStatus::auth_error) && reader.get_u32(first);
        return for_flavour ? Result<bool>(false) : bad_answer("denies something else");
    }
    std::span<const std::byte> verifier;
    uint32_t accept = 0;
    if (state != kMessageAccepted || !reader.get_u32(first) || !reader.get_opaque(verifier, kAuthBodyMaximum) ||
        !reader.get_u32(accept))
        return bad_answer("is no well-formed RPC reply");
    return is_starttls(first, verifier);
}

}  // namespace nfstdm::rpc
