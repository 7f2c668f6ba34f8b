// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/base/nfs4_numbers.h"

#include <algorithm>
#include <array>

#include "nfstdm/nfs3/constants.h"
#include "tools/loopnfsd/base/text.h"

namespace loopnfsd::nfs4 {

namespace {

// A failed SETATTR says that it set no attribute; every other operation that failed says nothing.
constexpr ProcedureRow operation(Op op, std::string_view name, int failure_words = 0) {
    return {nfstdm::nfs3::kProgram, kVersion, static_cast<uint32_t>(op), name, failure_words};
}

constexpr std::array kOperations{
    operation(Op::access, "ACCESS"),
    operation(Op::close, "CLOSE"),
    operation(Op::commit, "COMMIT"),
    operation(Op::create, "CREATE"),
    operation(Op::getattr, "GETATTR"),
    operation(Op::getfh, "GETFH"),
    operation(Op::link, "LINK"),
    operation(Op::lookup, "LOOKUP"),
    operation(Op::lookupp, "LOOKUPP"),
    operation(Op::nverify, "NVERIFY"),
    operation(Op::open, "OPEN"),
    operation(Op::open_downgrade, "OPEN_DOWNGRADE"),
    operation(Op::putfh, "PUTFH"),
    operation(Op::putpubfh, "PUTPUBFH"),
    operation(Op::putrootfh, "PUTROOTFH"),
    operation(Op::read, "READ"),
    operation(Op::readdir, "READDIR"),
    operation(Op::readlink, "READLINK"),
    operation(Op::remove, "REMOVE"),
    operation(Op::rename, "RENAME"),
    operation(Op::restorefh, "RESTOREFH"),
    operation(Op::savefh, "SAVEFH"),
    operation(Op::setattr, "SETATTR", 1),
    operation(Op::verify, "VERIFY"),
    operation(Op::write, "WRITE"),
    operation(Op::bind_conn_to_session, "BIND_CONN_TO_SESSION"),
    operation(Op::exchange_id, "EXCHANGE_ID"),
    operation(Op::create_session, "CREATE_SESSION"),
    operation(Op::destroy_session, "DESTROY_SESSION"),
    operation(Op::free_stateid, "FREE_STATEID"),
    operation(Op::secinfo_no_name, "SECINFO_NO_NAME"),
    operation(Op::sequence, "SEQUENCE"),
    operation(Op::test_stateid, "TEST_STATEID"),
    operation(Op::destroy_clientid, "DESTROY_CLIENTID"),
    operation(Op::reclaim_complete, "RECLAIM_COMPLETE"),
    operation(Op::copy, "COPY"),
    operation(Op::offload_status, "OFFLOAD_STATUS"),
    operation(Op::seek, "SEEK"),
    operation(Op::clone, "CLONE"),
};

struct StatusRow {
    Status status;
    std::string_view name;
};

constexpr std::array kStatuses{
    StatusRow{Status::ok, "OK"},
    StatusRow{Status::perm, "PERM"},
    StatusRow{Status::noent, "NOENT"},
    StatusRow{Status::io, "IO"},
    StatusRow{Status::nxio, "NXIO"},
    StatusRow{Status::access, "ACCESS"},
    StatusRow{Status::exist, "EXIST"},
    StatusRow{Status::xdev, "XDEV"},
    StatusRow{Status::notdir, "NOTDIR"},
    StatusRow{Status::isdir, "ISDIR"},
    StatusRow{Status::inval, "INVAL"},
    StatusRow{Status::fbig, "FBIG"},
    StatusRow{Status::nospc, "NOSPC"},
    StatusRow{Status::rofs, "ROFS"},
    StatusRow{Status::mlink, "MLINK"},
    StatusRow{Status::nametoolong, "NAMETOOLONG"},
    StatusRow{Status::notempty, "NOTEMPTY"},
    StatusRow{Status::dquot, "DQUOT"},
    StatusRow{Status::stale, "STALE"},
    StatusRow{Status::badhandle, "BADHANDLE"},
    StatusRow{Status::bad_cookie, "BAD_COOKIE"},
    StatusRow{Status::notsupp, "NOTSUPP"},
    StatusRow{Status::toosmall, "TOOSMALL"},
    StatusRow{Status::serverfault, "SERVERFAULT"},
    StatusRow{Status::badtype, "BADTYPE"},
    StatusRow{Status::delay, "DELAY"},
    StatusRow{Status::same, "SAME"},
    StatusRow{Status::denied, "DENIED"},
    StatusRow{Status::expired, "EXPIRED"},
    StatusRow{Status::locked, "LOCKED"},
    StatusRow{Status::grace, "GRACE"},
    StatusRow{Status::fhexpired, "FHEXPIRED"},
    StatusRow{Status::share_denied, "SHARE_DENIED"},
    StatusRow{Status::wrongsec, "WRONGSEC"},
    StatusRow{Status::clid_inuse, "CLID_INUSE"},
    StatusRow{Status::moved, "MOVED"},
    StatusRow{Status::nofilehandle, "NOFILEHANDLE"},
    StatusRow{Status::minor_vers_mismatch, "MINOR_VERS_MISMATCH"},
    StatusRow{Status::stale_clientid, "STALE_CLIENTID"},
    StatusRow{Status::stale_stateid, "STALE_STATEID"},
    StatusRow{Status::old_stateid, "OLD_STATEID"},
    StatusRow{Status::bad_stateid, "BAD_STATEID"},
    StatusRow{Status::not_same, "NOT_SAME"},
    StatusRow{Status::symlink, "SYMLINK"},
    StatusRow{Status::restorefh, "RESTOREFH"},
    StatusRow{Status::attrnotsupp, "ATTRNOTSUPP"},
    StatusRow{Status::no_grace, "NO_GRACE"},
    StatusRow{Status::reclaim_bad, "RECLAIM_BAD"},
    StatusRow{Status::badxdr, "BADXDR"},
    StatusRow{Status::locks_held, "LOCKS_HELD"},
    StatusRow{Status::openmode, "OPENMODE"},
    StatusRow{Status::badowner, "BADOWNER"},
    StatusRow{Status::badname, "BADNAME"},
    StatusRow{Status::op_illegal, "OP_ILLEGAL"},
    StatusRow{Status::admin_revoked, "ADMIN_REVOKED"},
    StatusRow{Status::badsession, "BADSESSION"},
    StatusRow{Status::badslot, "BADSLOT"},
    StatusRow{Status::complete_already, "COMPLETE_ALREADY"},
    StatusRow{Status::conn_not_bound_to_session, "CONN_NOT_BOUND_TO_SESSION"},
    StatusRow{Status::seq_misordered, "SEQ_MISORDERED"},
    StatusRow{Status::sequence_pos, "SEQUENCE_POS"},
    StatusRow{Status::req_too_big, "REQ_TOO_BIG"},
    StatusRow{Status::rep_too_big, "REP_TOO_BIG"},
    StatusRow{Status::rep_too_big_to_cache, "REP_TOO_BIG_TO_CACHE"},
    StatusRow{Status::retry_uncached_rep, "RETRY_UNCACHED_REP"},
    StatusRow{Status::too_many_ops, "TOO_MANY_OPS"},
    StatusRow{Status::op_not_in_session, "OP_NOT_IN_SESSION"},
    StatusRow{Status::clientid_busy, "CLIENTID_BUSY"},
    StatusRow{Status::seq_false_retry, "SEQ_FALSE_RETRY"},
    StatusRow{Status::bad_high_slot, "BAD_HIGH_SLOT"},
    StatusRow{Status::deadsession, "DEADSESSION"},
    StatusRow{Status::not_only_op, "NOT_ONLY_OP"},
    StatusRow{Status::wrong_type, "WRONG_TYPE"},
};

}  // namespace

std::string_view status_name(Status status) {
    const auto row = std::ranges::find(kStatuses, status, &StatusRow::status);
    return row == kStatuses.end() ? "?" : row->name;
}

std::optional<Status> status_by_name(std::string_view name) {
    constexpr std::string_view kPrefix = "NFS4ERR_";
    if (same_word(name.substr(0, kPrefix.size()), kPrefix)) name.remove_prefix(kPrefix.size());
    const auto row = std::ranges::find_if(kStatuses, [&](const StatusRow &each) { return same_word(each.name, name); });
    if (row == kStatuses.end()) return std::nullopt;
    return row->status;
}

Status from(NfsStatus status) {
    switch (status) {
        case NfsStatus::nodev:
            return Status::nxio;
        case NfsStatus::remote:
        case NfsStatus::not_sync:
            return Status::serverfault;
        default:
            return static_cast<Status>(status);  // the others have kept their numbers
    }
}

const ProcedureRow *find_operation(uint32_t number) {
    const auto row = std::ranges::find(kOperations, number, &ProcedureRow::number);
    return row == kOperations.end() ? nullptr : &*row;
}

const ProcedureRow *find_operation(std::string_view name) {
    const auto row =
        std::ranges::find_if(kOperations, [&](const ProcedureRow &each) { return same_word(each.name, name); });
    return row == kOperations.end() ? nullptr : &*row;
}

std::span<const ProcedureRow> all_operations() {
    return kOperations;
}

}  // namespace loopnfsd::nfs4
