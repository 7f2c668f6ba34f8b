// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/base/status.h"

#include <array>
#include <cerrno>

#include "tools/loopnfsd/base/text.h"

namespace loopnfsd {

namespace {

struct StatusRow {
    NfsStatus status;
    std::string_view name;
    int number;  // the errno answered so; 0 = none
};

constexpr std::array kStatuses{
    StatusRow{NfsStatus::ok, "OK", 0},
    StatusRow{NfsStatus::perm, "PERM", EPERM},
    StatusRow{NfsStatus::noent, "NOENT", ENOENT},
    StatusRow{NfsStatus::io, "IO", EIO},
    StatusRow{NfsStatus::nxio, "NXIO", ENXIO},
    StatusRow{NfsStatus::acces, "ACCES", EACCES},
    StatusRow{NfsStatus::exist, "EXIST", EEXIST},
    StatusRow{NfsStatus::xdev, "XDEV", EXDEV},
    StatusRow{NfsStatus::nodev, "NODEV", ENODEV},
    StatusRow{NfsStatus::notdir, "NOTDIR", ENOTDIR},
    StatusRow{NfsStatus::isdir, "ISDIR", EISDIR},
    StatusRow{NfsStatus::inval, "INVAL", EINVAL},
    StatusRow{NfsStatus::fbig, "FBIG", EFBIG},
    StatusRow{NfsStatus::nospc, "NOSPC", ENOSPC},
    StatusRow{NfsStatus::rofs, "ROFS", EROFS},
    StatusRow{NfsStatus::mlink, "MLINK", EMLINK},
    StatusRow{NfsStatus::nametoolong, "NAMETOOLONG", ENAMETOOLONG},
    StatusRow{NfsStatus::notempty, "NOTEMPTY", ENOTEMPTY},
    StatusRow{NfsStatus::dquot, "DQUOT", EDQUOT},
    StatusRow{NfsStatus::stale, "STALE", ESTALE},
    StatusRow{NfsStatus::remote, "REMOTE", EREMOTE},
    StatusRow{NfsStatus::badhandle, "BADHANDLE", 0},
    StatusRow{NfsStatus::not_sync, "NOT_SYNC", 0},
    StatusRow{NfsStatus::bad_cookie, "BAD_COOKIE", 0},
    StatusRow{NfsStatus::notsupp, "NOTSUPP", EOPNOTSUPP},
    StatusRow{NfsStatus::toosmall, "TOOSMALL", 0},
    StatusRow{NfsStatus::serverfault, "SERVERFAULT", 0},
    StatusRow{NfsStatus::badtype, "BADTYPE", 0},
    StatusRow{NfsStatus::jukebox, "JUKEBOX", 0},
};

}  // namespace

NfsStatus status_of_errno(int number) {
    switch (number) {
        case ELOOP:  // O_NOFOLLOW met a link where a file was expected
            return NfsStatus::inval;
        case ETXTBSY:
        case EBUSY:
            return NfsStatus::acces;
        case EMFILE:
        case ENFILE:
        case ENOMEM:
        case EAGAIN:
            return NfsStatus::jukebox;  // passes with time
        default:
            break;
    }
    for (const StatusRow &row : kStatuses)
        if (number != 0 && row.number == number) return row.status;
    return NfsStatus::io;
}

std::string_view status_name(NfsStatus status) {
    for (const StatusRow &row : kStatuses)
        if (row.status == status) return row.name;
    return "?";
}

std::optional<NfsStatus> status_by_name(std::string_view name) {
    constexpr std::string_view kPrefix = "NFS3ERR_";
    if (same_word(name.substr(0, kPrefix.size()), kPrefix)) name.remove_prefix(kPrefix.size());
    for (const StatusRow &row : kStatuses)
        if (same_word(row.name, name)) return row.status;
    return std::nullopt;
}

}  // namespace loopnfsd
