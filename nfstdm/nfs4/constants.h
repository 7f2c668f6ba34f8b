// SPDX-License-Identifier: Apache-2.0
// Numbers of NFS version 4, minor versions 1 and 2 (RFC 5662, RFC 7863), as far as the client or the loopback server
// use them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace nfstdm::nfs4 {

constexpr uint32_t kProcCompound = 1;
constexpr uint32_t kMinorVersionOfCopies = 2;  // COPY, CLONE, SEEK: RFC 7862

constexpr std::size_t kTagMaximum = 1024;  // of a compound; what a server may put there
constexpr std::size_t kHandleMaximum = 128;
constexpr std::size_t kVerifierSize = 8;
constexpr std::size_t kSessionIdSize = 16;
constexpr std::size_t kStateIdOtherSize = 12;
constexpr std::size_t kOpaqueMaximum = 1024;  // NFS4_OPAQUE_LIMIT: owners, server scopes and the like

using SessionId = std::array<std::byte, kSessionIdSize>;

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
    secinfo = 33,
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
    offload_status = 67,
    seek = 69,
    clone = 71,
    illegal = 10044,
};

// nfsstat4, RFC 8881 section 15.1 and RFC 7862 section 11.1.
enum class NfsStatus : uint32_t {
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
    bad_seqid = 10026,
    not_same = 10027,
    symlink = 10029,
    restorefh = 10030,
    lease_moved = 10031,
    attrnotsupp = 10032,
    no_grace = 10033,
    reclaim_bad = 10034,
    reclaim_conflict = 10035,
    badxdr = 10036,
    locks_held = 10037,
    openmode = 10038,
    badowner = 10039,
    badchar = 10040,
    badname = 10041,
    op_illegal = 10044,
    file_open = 10046,
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
    wrong_cred = 10082,
    wrong_type = 10083,
    union_notsupp = 10090,
    offload_denied = 10091,
    offload_no_reqs = 10094,
};

// File attributes by number (RFC 8881 section 5); each is a bit of a bitmap4.
enum class Attribute : uint32_t {
    supported = 0,
    type = 1,
    change = 3,
    size = 4,
    fsid = 8,
    lease_time = 10,
    rdattr_error = 11,
    filehandle = 19,
    fileid = 20,
    files_avail = 21,
    files_free = 22,
    files_total = 23,
    fs_locations = 24,
    maxfilesize = 27,
    maxread = 30,
    maxwrite = 31,
    mode = 33,
    numlinks = 35,
    owner = 36,
    owner_group = 37,
    space_avail = 42,
    space_free = 43,
    space_total = 44,
    space_used = 45,
    time_access = 47,
    time_metadata = 52,
    time_modify = 53,
};

// Of EXCHANGE_ID.
constexpr uint32_t kFlagUseNonPnfs = 0x00010000;
constexpr uint32_t kFlagConfirmed = 0x80000000;

// Of SEQUENCE's results.
constexpr uint32_t kStatusExpiredAllStateRevoked = 0x00000008;
constexpr uint32_t kStatusRestartReclaimNeeded = 0x00000100;

// Of OPEN.
constexpr uint32_t kShareAccessRead = 1;
constexpr uint32_t kShareAccessWrite = 2;
constexpr uint32_t kShareAccessWantNoDelegation = 0x0400;
enum class Claim : uint32_t { null = 0, previous = 1, file_handle = 4 };

}  // namespace nfstdm::nfs4
