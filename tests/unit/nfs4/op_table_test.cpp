// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs4/op_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "nfstdm/nfs4/status_table.h"

namespace nfstdm::nfs4 {
namespace {

TEST(OpTable, HasCompleteRowsOfDistinctOperations) {
    std::set<Op> numbers;
    std::set<std::string_view> names;
    for (const OpRow &row : op_table()) {
        EXPECT_TRUE(numbers.insert(row.number).second) << row.name;
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_FALSE(row.name.empty());
        EXPECT_GE(row.results_maximum, 8U) << row.name;
        EXPECT_EQ(&row_of(row.number), &row);
    }
}

TEST(OpTable, AsksTheServerToKeepTheAnswersOfWhatMakesOrTakesAwayNames) {
    for (const Op op : {Op::open, Op::create, Op::remove, Op::setattr, Op::close})
        EXPECT_TRUE(row_of(op).changes) << row_of(op).name;
    for (const Op op : {Op::read, Op::write, Op::getattr, Op::readdir})
        EXPECT_FALSE(row_of(op).changes) << row_of(op).name;
}

TEST(StatusTable, GivesEveryFailureANumberAndWordsOnce) {
    std::set<NfsStatus> seen;
    for (const StatusRow &row : status_table()) {
        EXPECT_TRUE(seen.insert(row.status).second) << row.name;
        const Status status = to_status(row.status);
        EXPECT_EQ(status.number(), static_cast<uint32_t>(row.number)) << row.name;
        EXPECT_NE(status.number(), 0U) << row.name;
        EXPECT_THAT(status.text(), testing::HasSubstr(std::string(row.name)));
        EXPECT_FALSE(row.words.empty());
    }
}

// NFS4ERR_SAME has the errno of a cookie that is no longer valid; NFS4ERR_NOT_SAME is what READDIR says of one whose
// verifier is another one by now (RFC 8881 section 18.23.3).
TEST(StatusTable, TellsWhatCanBeDoneAboutARefusalWhateverItsErrno) {
    EXPECT_TRUE(to_status(NfsStatus::bad_cookie).is(Condition::bad_cookie));
    EXPECT_TRUE(to_status(NfsStatus::same).is(Condition::none));
    EXPECT_TRUE(to_status(NfsStatus::not_same).is(Condition::bad_cookie));
    EXPECT_TRUE(to_status(NfsStatus::stale).is(Condition::stale));
    EXPECT_TRUE(to_status(NfsStatus::fhexpired).is(Condition::stale));
    EXPECT_TRUE(to_status(NfsStatus::grace).is(Condition::not_ready));
    EXPECT_TRUE(to_status(NfsStatus::minor_vers_mismatch).is(Condition::not_offered));
    EXPECT_TRUE(to_status(NfsStatus::wrongsec).is(Condition::credential));
    EXPECT_EQ(to_status(NfsStatus::grace).cause().number, 10013U);
}

TEST(StatusTable, NeverTurnsAFailureIntoSuccessAndNamesAnUnknownNumber) {
    EXPECT_FALSE(to_status(NfsStatus::ok).ok());
    const Status unknown = to_status(static_cast<NfsStatus>(54321));
    EXPECT_EQ(unknown.number(), static_cast<uint32_t>(EIO));
    EXPECT_THAT(unknown.text(), testing::HasSubstr("54321"));
}

}  // namespace
}  // namespace nfstdm::nfs4
