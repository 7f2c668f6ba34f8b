// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/op_table.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "nfstdm/nfs4/fields.h"
#include "nfstdm/xdr/words.h"

namespace nfstdm::nfs4 {

namespace {

using xdr::kHyper;
using xdr::kWord;

constexpr std::size_t kHead = 2 * kWord;  // number and status
constexpr std::size_t kStateId = kWord + kStateIdOtherSize;
constexpr std::size_t kChange = kWord + 2 * kHyper;
constexpr std::size_t kBitmap = kWord * 9;
// Owners are the only attributes that are long.
// (but for fs_locations, which is asked for by itself)
constexpr std::size_t kAttributesMaximum = kBitmap + kWord + 512 + 2 * (kWord + kOpaqueMaximum);
constexpr std::size_t kDelegationMaximum = 2048;
constexpr std::size_t kOwnerMaximum = kHyper + kWord + kOpaqueMaximum;
constexpr std::size_t kImplementation = 2 * (kWord + kOpaqueMaximum) + kHyper + kWord;
constexpr std::size_t kChannel = 8 * kWord;
// A directory's answer may go over what was asked for by an entry.
constexpr std::size_t kDirectory = kHead + kVerifierSize + 2 * kWord + 8192;

constexpr auto kRows = std::to_array<OpRow>({
    {Op::close, "CLOSE", true, kHead + kStateId},
    {Op::commit, "COMMIT", false, kHead + kVerifierSize},
    {Op::create, "CREATE", true, kHead + kChange + kBitmap},
    {Op::getattr, "GETATTR", false, kHead + kAttributesMaximum},
    {Op::getfh, "GETFH", false, kHead + kWord + kHandleMaximum},
    {Op::lookup, "LOOKUP", false, kHead},
    {Op::lookupp, "LOOKUPP", false, kHead},
    {Op::nverify, "NVERIFY", false, kHead},
    {Op::open, "OPEN", true, kHead + kStateId + kChange + kWord + kBitmap + kDelegationMaximum},
    {Op::putfh, "PUTFH", false, kHead},
    {Op::putrootfh, "PUTROOTFH", false, kHead},
    {Op::read, "READ", false, kHead + 2 * kWord},
    {Op::readdir, "READDIR", false, kDirectory},
    {Op::readlink, "READLINK", false, kHead + kWord + kTargetMaximum},
    {Op::remove, "REMOVE", true, kHead + kChange},
    {Op::savefh, "SAVEFH", false, kHead},
    {Op::secinfo, "SECINFO", false, kHead + 1024},
    {Op::setattr, "SETATTR", true, kHead + kBitmap},
    {Op::write, "WRITE", false, kHead + 2 * kWord + kVerifierSize},
    {Op::verify, "VERIFY", false, kHead},
    {Op::bind_conn_to_session, "BIND_CONN_TO_SESSION", false, kHead + kSessionIdSize + 2 * kWord},
    {Op::exchange_id, "EXCHANGE_ID", false,
     kHead + kHyper + 3 * kWord + kOwnerMaximum + kWord + kOpaqueMaximum + kWord + kImplementation},
    {Op::create_session, "CREATE_SESSION", false, kHead + kSessionIdSize + 2 * kWord + 2 * kChannel},
    {Op::destroy_session, "DESTROY_SESSION", false, kHead},
    {Op::secinfo_no_name, "SECINFO_NO_NAME", false, kHead + 1024},
    {Op::sequence, "SEQUENCE", false, kHead + kSessionIdSize + 5 * kWord},
    {Op::destroy_clientid, "DESTROY_CLIENTID", false, kHead},
    {Op::reclaim_complete, "RECLAIM_COMPLETE", false, kHead},
    {Op::copy, "COPY", false, kHead + kWord + kStateId + kHyper + kWord + kVerifierSize + 2 * kWord},
    {Op::offload_status, "OFFLOAD_STATUS", false, kHead + kHyper + 2 * kWord},
    {Op::seek, "SEEK", false, kHead + kWord + kHyper},
    {Op::clone, "CLONE", false, kHead},
});

}  // namespace

std::span<const OpRow> op_table() {
    return kRows;
}

const OpRow &row_of(Op op) {
    const auto row = std::find_if(kRows.begin(), kRows.end(), [op](const OpRow &each) { return each.number == op; });
    assert(row != kRows.end());
    return *row;
}

}  // namespace nfstdm::nfs4
