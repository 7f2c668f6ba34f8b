// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/status_table.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <set>

namespace nfstdm::nfs3 {
namespace {

using testing::HasSubstr;

// RFC 1813 section 2.6.
constexpr uint32_t kAll[] = {0,  1,  2,  5,  6,  13, 17,    18,    19,    20,    21,    22,    27,    28,   30,
                             31, 63, 66, 69, 70, 71, 10001, 10002, 10003, 10004, 10005, 10006, 10007, 10008};

TEST(StatusTable, HasARowForEveryStatusOfTheProtocolOnceAndInOrder) {
    std::vector<uint32_t> numbers;
    for (const StatusRow &row : status_table())
        numbers.push_back(static_cast<uint32_t>(row.status));
    EXPECT_THAT(numbers, testing::ElementsAreArray(kAll));
}

TEST(StatusTable, GivesEveryFailureANumberAndWords) {
    for (const StatusRow &row : status_table().subspan(1)) {
        const Status status = to_status(static_cast<uint32_t>(row.status));
        EXPECT_EQ(status.number(), static_cast<uint32_t>(row.number)) << row.name;
        EXPECT_NE(status.number(), 0U);
        EXPECT_THAT(status.text(), HasSubstr(std::string(row.name)));
        EXPECT_FALSE(row.words.empty());
    }
}

TEST(StatusTable, KeepsTheErrorsApartThatAnAdministratorActsOn) {
    EXPECT_EQ(to_status(2).number(), static_cast<uint32_t>(ENOENT));
    EXPECT_EQ(to_status(13).number(), static_cast<uint32_t>(EACCES));
    EXPECT_EQ(to_status(17).number(), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(to_status(28).number(), static_cast<uint32_t>(ENOSPC));
    EXPECT_EQ(to_status(30).number(), static_cast<uint32_t>(EROFS));
    EXPECT_EQ(to_status(63).number(), static_cast<uint32_t>(ENAMETOOLONG));
    EXPECT_EQ(to_status(66).number(), static_cast<uint32_t>(ENOTEMPTY));
    EXPECT_EQ(to_status(69).number(), static_cast<uint32_t>(EDQUOT));
    EXPECT_EQ(to_status(70).number(), static_cast<uint32_t>(ESTALE));
    EXPECT_EQ(to_status(10004).number(), static_cast<uint32_t>(ENOTSUP));
}

TEST(StatusTable, TellsWhatCanBeDoneAboutARefusalAndKeepsItsNumber) {
    EXPECT_TRUE(to_status(70).is(Condition::stale));
    EXPECT_TRUE(to_status(10001).is(Condition::stale));
    EXPECT_TRUE(to_status(10003).is(Condition::bad_cookie));
    EXPECT_TRUE(to_status(10004).is(Condition::no_operation));
    EXPECT_TRUE(to_status(10008).is(Condition::not_ready));
    EXPECT_TRUE(to_status(13).is(Condition::none));
    for (const uint32_t number : {10001U, 13U, 10008U, 54321U}) {
        const Status status = to_status(number).in("READ").in("server s");
        EXPECT_EQ(status.cause().source, Cause::Source::nfs);
        EXPECT_EQ(status.cause().number, number);
    }
}

TEST(StatusTable, TakesEveryUnknownNumberForAnIoErrorAndNamesIt) {
    const std::set<uint32_t> known(std::begin(kAll), std::end(kAll));
    for (uint32_t number = 1; number < 10100; ++number) {
        if (known.contains(number)) continue;
        const Status status = to_status(number);
        ASSERT_EQ(status.number(), static_cast<uint32_t>(EIO));
        ASSERT_THAT(status.text(), HasSubstr(std::to_string(number)));
    }
    EXPECT_EQ(to_status(0xFFFFFFFF).number(), static_cast<uint32_t>(EIO));
}

TEST(StatusTable, NeverTurnsAFailureIntoSuccess) {
    EXPECT_FALSE(to_status(0).ok());
}

}  // namespace
}  // namespace nfstdm::nfs3
