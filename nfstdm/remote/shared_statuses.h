// SPDX-License-Identifier: Apache-2.0
// The refusals that NFS versions 3 and 4 have in common: the same numbers (RFC 1813 section 2.6, RFC 8881
// section 15.1), the same meaning, and so the same errno and the same words.
#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <string>
#include <string_view>

#include "nfstdm/base/status.h"

namespace nfstdm::remote {

struct Refusal {
    uint32_t status;         // as it comes off the wire
    int number;              // the errno that fits
    std::string_view words;  // for people
    Condition condition = Condition::none;
};

inline constexpr auto kSharedRefusals = std::to_array<Refusal>({
    {1, EPERM, "only the owner may do that"},
    {2, ENOENT, "no such file or directory"},
    {5, EIO, "the server's disk failed"},
    {6, ENXIO, "no such device"},
    {13, EACCES, "permission denied"},
    {17, EEXIST, "the name exists already"},
    {18, EXDEV, "not within one file system"},
    {20, ENOTDIR, "not a directory"},
    {21, EISDIR, "it is a directory"},
    {22, EINVAL, "an argument makes no sense to the server"},
    {27, EFBIG, "the file would be too large"},
    {28, ENOSPC, "no space left on the server"},
    {30, EROFS, "the export is read-only"},
    {31, EMLINK, "too many links"},
    {63, ENAMETOOLONG, "the name is too long"},
    {66, ENOTEMPTY, "the directory is not empty"},
    {69, EDQUOT, "over quota on the server"},
    {70, ESTALE, "the file is gone from the server (stale handle)", Condition::stale},
    {10001, ESTALE, "the server does not know the handle", Condition::stale},
    {10003, EBADE, "the position in the directory is not valid any more", Condition::bad_cookie},
    {10004, ENOTSUP, "the server does not do that", Condition::no_operation},
    {10005, EOVERFLOW, "the answer does not fit what was asked for"},
    {10006, EREMOTEIO, "the server failed"},
    {10007, EINVAL, "the server has no objects of that type"},
    {10008, EBUSY, "the server is not ready for it yet", Condition::not_ready},
});

// Not to be called: a compile-time search that would end here has found nothing.
void no_such_shared_status();

// A version's row of a status that both have, under the name that the version gives it. Row is the status, the
// errno, the name, the words and the condition. One that is not shared does not compile.
template <class Row, class NfsStatus>
consteval Row shared_row(NfsStatus status, std::string_view name) {
    for (const Refusal &each : kSharedRefusals)
        if (each.status == static_cast<uint32_t>(status))
            return {status, each.number, name, each.words, each.condition};
    no_such_shared_status();
    return {};
}

// A number that no row of the version has is EIO and stands in the words; so does 0, which refuses nothing.
template <class Rows>
Status refusal_of(const Rows &rows, uint32_t number) {
    const auto row = std::ranges::find_if(
        rows, [number](const auto &each) { return static_cast<uint32_t>(each.status) == number && each.number != 0; });
    if (row == std::ranges::end(rows))
        return {EIO, "the server answered with the unknown status " + std::to_string(number),
                Cause{Cause::Source::nfs, number}};
    std::string text(row->words);
    text.append(" (").append(row->name).append(")");
    return {static_cast<uint32_t>(row->number), std::move(text), Cause{Cause::Source::nfs, number, row->condition}};
}

}  // namespace nfstdm::remote
