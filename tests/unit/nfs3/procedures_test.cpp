// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/procedures.h"

#include <gtest/gtest.h>

#include <set>

namespace nfstdm::nfs3 {
namespace {

TEST(ProcedureTable, HasCompleteRowsOfDistinctProcedures) {
    std::set<Procedure> numbers;
    std::set<std::string_view> names;
    for (const ProcedureRow &row : procedure_table()) {
        EXPECT_TRUE(numbers.insert(row.number).second) << row.name;
        EXPECT_TRUE(names.insert(row.name).second) << row.name;
        EXPECT_FALSE(row.name.empty());
        EXPECT_GE(row.results_maximum, 4U) << row.name;
        EXPECT_EQ(&row_of(row.number), &row);
    }
    EXPECT_EQ(numbers.size(), 15U);
}

TEST(ProcedureTable, SaysForWhatCannotBeRepeatedWhichAnswerMeansDone) {
    for (const ProcedureRow &row : procedure_table())
        EXPECT_EQ(row.repeatable, row.done_before == NfsStatus::ok) << row.name;
    EXPECT_EQ(row_of(Procedure::create).done_before, NfsStatus::exist);
    EXPECT_EQ(row_of(Procedure::mkdir).done_before, NfsStatus::exist);
    EXPECT_EQ(row_of(Procedure::remove).done_before, NfsStatus::noent);
    EXPECT_EQ(row_of(Procedure::rmdir).done_before, NfsStatus::noent);
}

}  // namespace
}  // namespace nfstdm::nfs3
