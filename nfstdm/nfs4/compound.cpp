// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/compound.h"

#include <utility>

#include "nfstdm/nfs4/replies.h"
#include "nfstdm/rpc/message/message.h"
#include "nfstdm/xdr/words.h"

namespace nfstdm::nfs4 {

namespace {

constexpr std::size_t kTagMaximum = 1024;
// Status, an empty tag that a server may fill, the number of results.
constexpr std::size_t kHeadMaximum = 3 * xdr::kWord + kTagMaximum;

}  // namespace

Compound::Compound(xdr::Writer call, uint32_t minor_version) : call_(std::move(call)), results_maximum_(kHeadMaximum) {
    call_.put_u32(0);  // an empty tag
    call_.put_u32(minor_version);
    count_at_ = call_.size();
    call_.put_u32(0);
}

xdr::Writer &Compound::add(Op op) {
    const OpRow &row = row_of(op);
    call_.patch_u32(count_at_, ++operations_);
    call_.put_u32(static_cast<uint32_t>(op));
    changes_ = changes_ || row.changes;
    results_maximum_ += row.results_maximum;
    return call_;
}

Results::Results(std::span<const std::byte> bytes) : reader_(bytes) {
    uint32_t status = 0;
    std::string_view tag;
    sound_ = reader_.get_u32(status) && reader_.get_string(tag, kTagMaximum) && reader_.get_u32(left_);
    overall_ = static_cast<NfsStatus>(status);
}

bool Results::next(Op op) {
    uint32_t number = 0;
    uint32_t status = 0;
    if (!sound_ || failure_ != NfsStatus::ok) return false;
    if (left_ == 0) {
        // A compound that failed before its first result tells so in its own status (a minor version, a tag).
        failure_ = overall_;
        failed_op_ = op;
        sound_ = overall_ != NfsStatus::ok;
        return false;
    }
    --left_;
    sound_ = reader_.get_u32(number) && reader_.get_u32(status) && number == static_cast<uint32_t>(op);
    if (!sound_) return false;
    failure_ = static_cast<NfsStatus>(status);
    failed_op_ = op;
    return failure_ == NfsStatus::ok;
}

std::size_t read_data_position(std::span<const std::byte> known) {
    // When all went well, so much stands in front of the data: the compound's head, SEQUENCE, PUTFH and READ.
    constexpr std::size_t kLeast =
        3 * xdr::kWord + (2 * xdr::kWord + kSessionIdSize + 5 * xdr::kWord) + 2 * xdr::kWord + 4 * xdr::kWord;
    if (known.size() < xdr::kWord) return xdr::kWord;
    xdr::Reader reader(known);
    uint32_t status = 0;
    if (!reader.get_u32(status) || status != 0) return rpc::kWholeRecord;
    if (known.size() < kLeast) return kLeast;
    std::string_view tag;
    uint32_t count = 0;
    reader.get_string(tag, kTagMaximum);
    reader.get_u32(count);
    for (; reader.ok() && count > 0; --count) {
        uint32_t op = 0;
        if (!reader.get_u32(op) || !reader.get_u32(status)) break;
        if (op != static_cast<uint32_t>(Op::read)) {
            skip_results(reader, static_cast<Op>(op));
            continue;
        }
        if (!reader.skip(2 * xdr::kWord)) break;
        // A READ so near the front lacks the operations it was asked behind: the answer is collected whole, and
        // refused.
        return reader.left() == 0 ? known.size() : rpc::kWholeRecord;
    }
    return known.size() + xdr::kWord;
}

}  // namespace nfstdm::nfs4
