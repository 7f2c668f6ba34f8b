// SPDX-License-Identifier: Apache-2.0
// Numbers of NFS version 3 and of the MOUNT protocol version 3 (RFC 1813). Client and loopback server share them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "nfstdm/remote/constants.h"

namespace nfstdm::mount3 {

constexpr uint32_t kProgram = 100005;
constexpr uint32_t kVersion = 3;
constexpr std::size_t kPathMaximum = 1024;
constexpr std::size_t kNameMaximum = 255;
constexpr std::size_t kHandleMaximum = 64;

enum class Procedure : uint32_t { null = 0, mnt = 1, dump = 2, umnt = 3, umntall = 4, export_list = 5 };

}  // namespace nfstdm::mount3

namespace nfstdm::nfs3 {

using remote::kPort;
using remote::kProgram;
constexpr uint32_t kVersion = remote::kVersion3;
constexpr std::size_t kHandleMaximum = 64;
constexpr std::size_t kVerifierSize = 8;

enum class Procedure : uint32_t {
    null = 0,
    getattr = 1,
    setattr = 2,
    lookup = 3,
    access = 4,
    readlink = 5,
    read = 6,
    write = 7,
    create = 8,
    mkdir = 9,
    symlink = 10,
    mknod = 11,
    remove = 12,
    rmdir = 13,
    rename = 14,
    link = 15,
    readdir = 16,
    readdirplus = 17,
    fsstat = 18,
    fsinfo = 19,
    pathconf = 20,
    commit = 21,
};

// nfsstat3, RFC 1813 section 2.6; mountstat3 (section 5.1.5) uses the same numbers where it has the same names.
enum class NfsStatus : uint32_t {
    ok = 0,
    perm = 1,
    noent = 2,
    io = 5,
    nxio = 6,
    acces = 13,
    exist = 17,
    xdev = 18,
    nodev = 19,
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
    remote = 71,
    badhandle = 10001,
    not_sync = 10002,
    bad_cookie = 10003,
    notsupp = 10004,
    toosmall = 10005,
    serverfault = 10006,
    badtype = 10007,
    jukebox = 10008,
};

enum class CreateMode : uint32_t { unchecked = 0, guarded = 1, exclusive = 2 };
enum class TimeHow : uint32_t { dont_change = 0, server_time = 1, client_time = 2 };

}  // namespace nfstdm::nfs3
