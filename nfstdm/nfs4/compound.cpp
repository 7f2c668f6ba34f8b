// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/compound.h"

#include "nfstdm/xdr/words.h"

namespace nfstdm::nfs4 {

namespace {

// Status, an empty tag that a server may fill, the number of results.
constexpr std::size_t kHeadMaximum = 3 * xdr::kWord + kTagMaximum;

}  // namespace

Compound::Compound(uint32_t minor_version) : results_maximum_(kHeadMaximum) {
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

}  // namespace nfstdm::nfs4
