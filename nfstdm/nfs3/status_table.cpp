// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/status_table.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

namespace nfstdm::nfs3 {

namespace {

constexpr auto kTable = std::to_array<StatusRow>({
    {NfsStatus::ok, 0, "NFS3_OK", "done"},
    {NfsStatus::perm, EPERM, "NFS3ERR_PERM", "only the owner may do that"},
    {NfsStatus::noent, ENOENT, "NFS3ERR_NOENT", "no such file or directory"},
    {NfsStatus::io, EIO, "NFS3ERR_IO", "the server's disk failed"},
    {NfsStatus::nxio, ENXIO, "NFS3ERR_NXIO", "no such device"},
    {NfsStatus::acces, EACCES, "NFS3ERR_ACCES", "permission denied"},
    {NfsStatus::exist, EEXIST, "NFS3ERR_EXIST", "the name exists already"},
    {NfsStatus::xdev, EXDEV, "NFS3ERR_XDEV", "not within one file system"},
    {NfsStatus::nodev, ENODEV, "NFS3ERR_NODEV", "the device does not do that"},
    {NfsStatus::notdir, ENOTDIR, "NFS3ERR_NOTDIR", "not a directory"},
    {NfsStatus::isdir, EISDIR, "NFS3ERR_ISDIR", "it is a directory"},
    {NfsStatus::inval, EINVAL, "NFS3ERR_INVAL", "an argument makes no sense to the server"},
    {NfsStatus::fbig, EFBIG, "NFS3ERR_FBIG", "the file would be too large"},
    {NfsStatus::nospc, ENOSPC, "NFS3ERR_NOSPC", "no space left on the server"},
    {NfsStatus::rofs, EROFS, "NFS3ERR_ROFS", "the export is read-only"},
    {NfsStatus::mlink, EMLINK, "NFS3ERR_MLINK", "too many links"},
    {NfsStatus::nametoolong, ENAMETOOLONG, "NFS3ERR_NAMETOOLONG", "the name is too long"},
    {NfsStatus::notempty, ENOTEMPTY, "NFS3ERR_NOTEMPTY", "the directory is not empty"},
    {NfsStatus::dquot, EDQUOT, "NFS3ERR_DQUOT", "over quota on the server"},
    {NfsStatus::stale, ESTALE, "NFS3ERR_STALE", "the file is gone from the server (stale handle)"},
    {NfsStatus::remote, EREMOTE, "NFS3ERR_REMOTE", "the file lies on another server"},
    {NfsStatus::badhandle, ESTALE, "NFS3ERR_BADHANDLE", "the server does not know the handle"},
    {NfsStatus::not_sync, EAGAIN, "NFS3ERR_NOT_SYNC", "the file was changed meanwhile"},
    {NfsStatus::bad_cookie, EBADE, "NFS3ERR_BAD_COOKIE", "the position in the directory is not valid any more"},
    {NfsStatus::notsupp, ENOTSUP, "NFS3ERR_NOTSUPP", "the server does not do that"},
    {NfsStatus::toosmall, EOVERFLOW, "NFS3ERR_TOOSMALL", "the answer does not fit what was asked for"},
    {NfsStatus::serverfault, EREMOTEIO, "NFS3ERR_SERVERFAULT", "the server failed"},
    {NfsStatus::badtype, EINVAL, "NFS3ERR_BADTYPE", "the server has no objects of that type"},
    {NfsStatus::jukebox, EBUSY, "NFS3ERR_JUKEBOX", "the server is not ready for it yet"},
});

}  // namespace

std::span<const StatusRow> status_table() {
    return kTable;
}

Status to_status(uint32_t number) {
    const auto row = std::find_if(kTable.begin(), kTable.end(), [number](const StatusRow &each) {
        return static_cast<uint32_t>(each.status) == number;
    });
    if (row == kTable.end() || row->number == 0)
        return {EIO, "the server answered with the unknown status " + std::to_string(number)};
    std::string text(row->words);
    text.append(" (").append(row->name).append(")");
    return {static_cast<uint32_t>(row->number), std::move(text)};
}

}  // namespace nfstdm::nfs3
