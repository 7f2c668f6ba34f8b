// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/status_table.h"

#include <array>
#include <cerrno>

#include "nfstdm/remote/shared_statuses.h"

namespace nfstdm::nfs4 {

namespace {

consteval StatusRow shared(NfsStatus status, std::string_view name) {
    return remote::shared_row<StatusRow>(status, name);
}

constexpr auto kStatuses = std::to_array<StatusRow>({
    shared(NfsStatus::perm, "NFS4ERR_PERM"),
    shared(NfsStatus::noent, "NFS4ERR_NOENT"),
    shared(NfsStatus::io, "NFS4ERR_IO"),
    shared(NfsStatus::nxio, "NFS4ERR_NXIO"),
    shared(NfsStatus::access, "NFS4ERR_ACCESS"),
    shared(NfsStatus::exist, "NFS4ERR_EXIST"),
    shared(NfsStatus::xdev, "NFS4ERR_XDEV"),
    shared(NfsStatus::notdir, "NFS4ERR_NOTDIR"),
    shared(NfsStatus::isdir, "NFS4ERR_ISDIR"),
    shared(NfsStatus::inval, "NFS4ERR_INVAL"),
    shared(NfsStatus::fbig, "NFS4ERR_FBIG"),
    shared(NfsStatus::nospc, "NFS4ERR_NOSPC"),
    shared(NfsStatus::rofs, "NFS4ERR_ROFS"),
    shared(NfsStatus::mlink, "NFS4ERR_MLINK"),
    shared(NfsStatus::nametoolong, "NFS4ERR_NAMETOOLONG"),
    shared(NfsStatus::notempty, "NFS4ERR_NOTEMPTY"),
    shared(NfsStatus::dquot, "NFS4ERR_DQUOT"),
    shared(NfsStatus::stale, "NFS4ERR_STALE"),
    shared(NfsStatus::badhandle, "NFS4ERR_BADHANDLE"),
    shared(NfsStatus::bad_cookie, "NFS4ERR_BAD_COOKIE"),
    shared(NfsStatus::notsupp, "NFS4ERR_NOTSUPP"),
    shared(NfsStatus::toosmall, "NFS4ERR_TOOSMALL"),
    shared(NfsStatus::serverfault, "NFS4ERR_SERVERFAULT"),
    shared(NfsStatus::badtype, "NFS4ERR_BADTYPE"),
    shared(NfsStatus::delay, "NFS4ERR_DELAY"),
    {NfsStatus::same, EBADE, "NFS4ERR_SAME", "the object has not changed"},
    {NfsStatus::denied, EACCES, "NFS4ERR_DENIED", "another client holds a lock"},
    {NfsStatus::expired, EIO, "NFS4ERR_EXPIRED", "the server took the open file back: it did not hear of us for long"},
    {NfsStatus::locked, EACCES, "NFS4ERR_LOCKED", "another client has locked the file"},
    {NfsStatus::grace, EBUSY, "NFS4ERR_GRACE", "the server has restarted and is not ready yet", Condition::not_ready},
    {NfsStatus::fhexpired, ESTALE, "NFS4ERR_FHEXPIRED", "the handle has expired", Condition::stale},
    {NfsStatus::share_denied, EACCES, "NFS4ERR_SHARE_DENIED", "another client has opened the file for itself"},
    {NfsStatus::wrongsec, EACCES, "NFS4ERR_WRONGSEC", "the server wants another security flavour here",
     Condition::credential},
    {NfsStatus::clid_inuse, EBUSY, "NFS4ERR_CLID_INUSE", "another client has the same name"},
    {NfsStatus::moved, EREMOTE, "NFS4ERR_MOVED", "the file system is on another server now"},
    {NfsStatus::nofilehandle, EIO, "NFS4ERR_NOFILEHANDLE", "the server lost the object within one request"},
    {NfsStatus::minor_vers_mismatch, EPROTONOSUPPORT, "NFS4ERR_MINOR_VERS_MISMATCH",
     "the server does not offer this minor version of NFSv4", Condition::not_offered},
    {NfsStatus::stale_clientid, EIO, "NFS4ERR_STALE_CLIENTID", "the server does not know this client any more"},
    {NfsStatus::stale_stateid, EIO, "NFS4ERR_STALE_STATEID", "the server does not know the open file any more"},
    {NfsStatus::old_stateid, EIO, "NFS4ERR_OLD_STATEID", "the open file has changed its state meanwhile"},
    {NfsStatus::bad_stateid, EIO, "NFS4ERR_BAD_STATEID", "the server does not know the open file"},
    {NfsStatus::bad_seqid, EIO, "NFS4ERR_BAD_SEQID", "the server and this client count differently"},
    {NfsStatus::not_same, EBADE, "NFS4ERR_NOT_SAME", "the directory was changed meanwhile", Condition::bad_cookie},
    {NfsStatus::symlink, ELOOP, "NFS4ERR_SYMLINK", "it is a link"},
    {NfsStatus::lease_moved, EREMOTE, "NFS4ERR_LEASE_MOVED", "the file system is moving to another server"},
    {NfsStatus::attrnotsupp, ENOTSUP, "NFS4ERR_ATTRNOTSUPP", "the server has no such attribute"},
    {NfsStatus::no_grace, EIO, "NFS4ERR_NO_GRACE", "the server's time of grace is over"},
    {NfsStatus::reclaim_bad, EIO, "NFS4ERR_RECLAIM_BAD", "the server does not give the open file back"},
    {NfsStatus::reclaim_conflict, EIO, "NFS4ERR_RECLAIM_CONFLICT", "another client has the open file now"},
    {NfsStatus::badxdr, EIO, "NFS4ERR_BADXDR", "the server could not read the request"},
    {NfsStatus::openmode, EACCES, "NFS4ERR_OPENMODE", "the file is not open for that"},
    {NfsStatus::badowner, EINVAL, "NFS4ERR_BADOWNER", "the server does not know the owner"},
    {NfsStatus::badchar, EINVAL, "NFS4ERR_BADCHAR", "the server does not take a character of the name"},
    {NfsStatus::badname, EINVAL, "NFS4ERR_BADNAME", "the server does not take the name"},
    {NfsStatus::op_illegal, ENOTSUP, "NFS4ERR_OP_ILLEGAL", "the server does not know the operation",
     Condition::no_operation},
    {NfsStatus::file_open, EBUSY, "NFS4ERR_FILE_OPEN", "the file is open elsewhere"},
    {NfsStatus::admin_revoked, EIO, "NFS4ERR_ADMIN_REVOKED", "the server's administrator took the open file back"},
    {NfsStatus::badsession, EIO, "NFS4ERR_BADSESSION", "the server does not know the session"},
    {NfsStatus::badslot, EIO, "NFS4ERR_BADSLOT", "the server has fewer slots"},
    {NfsStatus::complete_already, EIO, "NFS4ERR_COMPLETE_ALREADY", "reclaiming was over already"},
    {NfsStatus::conn_not_bound_to_session, EIO, "NFS4ERR_CONN_NOT_BOUND_TO_SESSION",
     "the server wants the connection to be bound to the session"},
    {NfsStatus::seq_misordered, EIO, "NFS4ERR_SEQ_MISORDERED", "the server and this client count differently"},
    {NfsStatus::sequence_pos, EIO, "NFS4ERR_SEQUENCE_POS", "the server wants SEQUENCE elsewhere"},
    {NfsStatus::req_too_big, EMSGSIZE, "NFS4ERR_REQ_TOO_BIG", "the request is larger than the session allows"},
    {NfsStatus::rep_too_big, EMSGSIZE, "NFS4ERR_REP_TOO_BIG", "the answer is larger than the session allows"},
    {NfsStatus::rep_too_big_to_cache, EMSGSIZE, "NFS4ERR_REP_TOO_BIG_TO_CACHE",
     "the answer is larger than the server keeps"},
    {NfsStatus::retry_uncached_rep, EIO, "NFS4ERR_RETRY_UNCACHED_REP", "the server did not keep its answer"},
    {NfsStatus::too_many_ops, EMSGSIZE, "NFS4ERR_TOO_MANY_OPS",
     "the request has more operations than the server takes"},
    {NfsStatus::op_not_in_session, EIO, "NFS4ERR_OP_NOT_IN_SESSION", "the server wants a session for it"},
    {NfsStatus::clientid_busy, EBUSY, "NFS4ERR_CLIENTID_BUSY", "the client still has state on the server"},
    {NfsStatus::seq_false_retry, EIO, "NFS4ERR_SEQ_FALSE_RETRY", "the server and this client count differently"},
    {NfsStatus::bad_high_slot, EIO, "NFS4ERR_BAD_HIGH_SLOT", "the server has fewer slots"},
    {NfsStatus::deadsession, EIO, "NFS4ERR_DEADSESSION", "the server has ended the session"},
    {NfsStatus::not_only_op, EIO, "NFS4ERR_NOT_ONLY_OP", "the server wants the operation by itself"},
    {NfsStatus::wrong_cred, EACCES, "NFS4ERR_WRONG_CRED", "the server knows this client under another identity",
     Condition::credential},
    {NfsStatus::wrong_type, EINVAL, "NFS4ERR_WRONG_TYPE", "it is no object of the right type"},
    {NfsStatus::union_notsupp, ENOTSUP, "NFS4ERR_UNION_NOTSUPP", "the server does not do that"},
    {NfsStatus::offload_denied, ENOTSUP, "NFS4ERR_OFFLOAD_DENIED", "the server does not want to copy by itself"},
    {NfsStatus::offload_no_reqs, ENOTSUP, "NFS4ERR_OFFLOAD_NO_REQS", "the server copies in another manner only"},
});

}  // namespace

bool state_is_lost(NfsStatus status) {
    switch (status) {
        case NfsStatus::bad_stateid:
        case NfsStatus::stale_stateid:
        case NfsStatus::old_stateid:
        case NfsStatus::expired:
        case NfsStatus::admin_revoked:
            return true;
        default:
            return false;
    }
}

std::span<const StatusRow> status_table() {
    return kStatuses;
}

Status to_status(NfsStatus status) {
    return remote::refusal_of(kStatuses, static_cast<uint32_t>(status));
}

}  // namespace nfstdm::nfs4
