// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/base/status.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <utility>

namespace {

using loopnfsd::NfsStatus;

TEST(Status, EveryNumberOfTheProtocolHasANameThatFindsItAgain) {
    for (const uint32_t number : {0,  1,  2,  5,  6,  13, 17,    18,    19,    20,    21,    22,    27,    28,   30,
                                  31, 63, 66, 69, 70, 71, 10001, 10002, 10003, 10004, 10005, 10006, 10007, 10008}) {
        const auto status = static_cast<NfsStatus>(number);
        EXPECT_NE(loopnfsd::status_name(status), "?") << number;
        EXPECT_EQ(loopnfsd::status_by_name(loopnfsd::status_name(status)), status) << number;
    }
    EXPECT_EQ(loopnfsd::status_name(static_cast<NfsStatus>(3)), "?");
}

TEST(Status, NamesAreFoundInAnyCaseWithOrWithoutTheirPrefix) {
    EXPECT_EQ(loopnfsd::status_by_name("nospc"), NfsStatus::nospc);
    EXPECT_EQ(loopnfsd::status_by_name("NFS3ERR_JUKEBOX"), NfsStatus::jukebox);
    EXPECT_EQ(loopnfsd::status_by_name("FULL"), std::nullopt);
    EXPECT_EQ(loopnfsd::status_by_name(""), std::nullopt);
}

TEST(Status, EveryErrnoBecomesTheStatusAClientCanActOn) {
    const std::pair<int, NfsStatus> table[] = {
        {EPERM, NfsStatus::perm},     {ENOENT, NfsStatus::noent},   {EIO, NfsStatus::io},
        {EACCES, NfsStatus::acces},   {EEXIST, NfsStatus::exist},   {EXDEV, NfsStatus::xdev},
        {ENOTDIR, NfsStatus::notdir}, {EISDIR, NfsStatus::isdir},   {EINVAL, NfsStatus::inval},
        {EFBIG, NfsStatus::fbig},     {ENOSPC, NfsStatus::nospc},   {EROFS, NfsStatus::rofs},
        {EMLINK, NfsStatus::mlink},   {EDQUOT, NfsStatus::dquot},   {ENAMETOOLONG, NfsStatus::nametoolong},
        {ESTALE, NfsStatus::stale},   {ELOOP, NfsStatus::inval},    {ENOTEMPTY, NfsStatus::notempty},
        {ENOMEM, NfsStatus::jukebox}, {EMFILE, NfsStatus::jukebox}, {EOPNOTSUPP, NfsStatus::notsupp},
        {EBADMSG, NfsStatus::io},     {0, NfsStatus::io},
    };
    for (const auto &[number, status] : table)
        EXPECT_EQ(loopnfsd::status_of_errno(number), status) << number;
}

}  // namespace
