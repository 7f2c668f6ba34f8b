// SPDX-License-Identifier: Apache-2.0
// Operations and statuses of NFS version 4, minor versions 1 and 2 (RFC 8881 sections 15 and 18, RFC 7862).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "tools/loopnfsd/base/procedures.h"
#include "tools/loopnfsd/base/status.h"

namespace loopnfsd::nfs4 {

constexpr uint32_t kVersion = 4;
constexpr uint32_t kProcCompound = 1;

enum class Op : uint32_t {
    access = 3,
    close = 4,
    commit = 5,
    create = 6,
    getattr = 9,
    getfh = 10,
    link = 11,
    lookup = 15,
    lookupp = 16,
    nverify = 17,
    open = 18,
    open_downgrade = 21,
    putfh = 22,
    putpubfh = 23,
    putrootfh = 24,
    read = 25,
    readdir = 26,
    readlink = 27,
    remove = 28,
    rename = 29,
    restorefh = 31,
    savefh = 32,
    setattr = 34,
    verify = 37,
    write = 38,
    bind_conn_to_session = 41,
    exchange_id = 42,
    create_session = 43,
    destroy_session = 44,
    free_stateid = 45,
    secinfo_no_name = 52,
    sequence = 53,
    test_stateid = 55,
    destroy_clientid = 57,
    reclaim_complete = 58,
    copy = 60,
    seek = 69,
    clone = 71,
    illegal = 10044,
};
constexpr uint32_t kFirstOp = 3;
constexpr uint32_t kLastOp1 = 58;  // of minor version 1
constexpr uint32_t kLastOp2 = 71;  // of minor version 2

// nfsstat4
enum class Status : uint32_t {
    ok = 0,
    perm = 1,
    noent = 2,
    io = 5,
    nxio = 6,
    access = 13,
    exist = 17,
    xdev = 18,
    notdir = 20,
    isdir = 21,
    inval = 22,
    fbig = 27,
    nospc = 28,
    rofs = 30,
    mlink = 31,
    nametoolong = 63,
    notempty = 66,
    dquot = 69,
    stale = 70,
    badhandle = 10001,
    bad_cookie = 10003,
    notsupp = 10004,
    toosmall = 10005,
    serverfault = 10006,
    badtype = 10007,
    delay = 10008,
    same = 10009,
    denied = 10010,
    expired = 10011,
    locked = 10012,
    grace = 10013,
    fhexpired = 10014,
    share_denied = 10015,
    wrongsec = 10016,
    clid_inuse = 10017,
    moved = 10019,
    nofilehandle = 10020,
    minor_vers_mismatch = 10021,
    stale_clientid = 10022,
    stale_stateid = 10023,
    old_stateid = 10024,
    bad_stateid = 10025,
    not_same = 10027,
    symlink = 10029,
    restorefh = 10030,
    attrnotsupp = 10032,
    no_grace = 10033,
    reclaim_bad = 10034,
    badxdr = 10036,
    locks_held = 10037,
    openmode = 10038,
    badowner = 10039,
    badname = 10041,
    op_illegal = 10044,
    admin_revoked = 10047,
    badsession = 10052,
    badslot = 10053,
    complete_already = 10054,
    conn_not_bound_to_session = 10055,
    seq_misordered = 10063,
    sequence_pos = 10064,
    req_too_big = 10065,
    rep_too_big = 10066,
    rep_too_big_to_cache = 10067,
    retry_uncached_rep = 10068,
    too_many_ops = 10070,
    op_not_in_session = 10071,
    clientid_busy = 10074,
    seq_false_retry = 10076,
    bad_high_slot = 10077,
    deadsession = 10078,
    not_only_op = 10081,
    wrong_type = 10083,
};

// "EXPIRED" for NFS4ERR_EXPIRED; "?" for a number that is none.
std::string_view status_name(Status status);

// The reverse, in any case, with or without "NFS4ERR_".
std::optional<Status> status_by_name(std::string_view name);

// What an object's status of version 3 is called in version 4.
Status from(NfsStatus status);

// The row of an operation, for counters and faults; nullptr for one that is not served.
const ProcedureRow *find_operation(uint32_t number);
const ProcedureRow *find_operation(std::string_view name);  // in any case
std::span<const ProcedureRow> all_operations();

}  // namespace loopnfsd::nfs4
