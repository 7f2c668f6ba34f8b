// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/status_table.h"

#include <array>
#include <cerrno>

#include "nfstdm/remote/shared_statuses.h"

namespace nfstdm::nfs3 {

namespace {

consteval StatusRow shared(NfsStatus status, std::string_view name) {
    return remote::shared_row<StatusRow>(status, name);
}

constexpr auto kStatuses = std::to_array<StatusRow>({
    {NfsStatus::ok, 0, "NFS3_OK", "done"},
    shared(NfsStatus::perm, "NFS3ERR_PERM"),
    shared(NfsStatus::noent, "NFS3ERR_NOENT"),
    shared(NfsStatus::io, "NFS3ERR_IO"),
    shared(NfsStatus::nxio, "NFS3ERR_NXIO"),
    shared(NfsStatus::acces, "NFS3ERR_ACCES"),
    shared(NfsStatus::exist, "NFS3ERR_EXIST"),
    shared(NfsStatus::xdev, "NFS3ERR_XDEV"),
    {NfsStatus::nodev, ENODEV, "NFS3ERR_NODEV", "the device does not do that"},
    shared(NfsStatus::notdir, "NFS3ERR_NOTDIR"),
    shared(NfsStatus::isdir, "NFS3ERR_ISDIR"),
    shared(NfsStatus::inval, "NFS3ERR_INVAL"),
    shared(NfsStatus::fbig, "NFS3ERR_FBIG"),
    shared(NfsStatus::nospc, "NFS3ERR_NOSPC"),
    shared(NfsStatus::rofs, "NFS3ERR_ROFS"),
    shared(NfsStatus::mlink, "NFS3ERR_MLINK"),
    shared(NfsStatus::nametoolong, "NFS3ERR_NAMETOOLONG"),
    shared(NfsStatus::notempty, "NFS3ERR_NOTEMPTY"),
    shared(NfsStatus::dquot, "NFS3ERR_DQUOT"),
    shared(NfsStatus::stale, "NFS3ERR_STALE"),
    {NfsStatus::remote, EREMOTE, "NFS3ERR_REMOTE", "the file lies on another server"},
    shared(NfsStatus::badhandle, "NFS3ERR_BADHANDLE"),
    {NfsStatus::not_sync, EAGAIN, "NFS3ERR_NOT_SYNC", "the file was changed meanwhile"},
    shared(NfsStatus::bad_cookie, "NFS3ERR_BAD_COOKIE"),
    shared(NfsStatus::notsupp, "NFS3ERR_NOTSUPP"),
    shared(NfsStatus::toosmall, "NFS3ERR_TOOSMALL"),
    shared(NfsStatus::serverfault, "NFS3ERR_SERVERFAULT"),
    shared(NfsStatus::badtype, "NFS3ERR_BADTYPE"),
    shared(NfsStatus::jukebox, "NFS3ERR_JUKEBOX"),
});

}  // namespace

std::span<const StatusRow> status_table() {
    return kStatuses;
}

Status to_status(uint32_t number) {
    return remote::refusal_of(kStatuses, number);
}

}  // namespace nfstdm::nfs3
