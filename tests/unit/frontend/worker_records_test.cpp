// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/worker_records.h"

#include <gtest/gtest.h>

namespace {

Outcome sample_outcome() {
    return {7,
            After::ends,
            {{"library", 5, false}, {"", 0, false}, {"a remark: 3:x", 0, true}, "hint", "aftermath"},
            {"one", "", "three\n"},
            {"output\n", "", std::string("trace\0", 6)}};
}

TEST(WorkerRecords, AJobComesOutAsItWentIn) {
    const Job job{"/a/b c:1", std::string("new\nline\0end", 12), {"", "knowledge"}, {"/held", ""}};
    Job got;
    ASSERT_TRUE(unpack(pack(job), got));
    EXPECT_EQ(got, job);
}

TEST(WorkerRecords, AnOutcomeComesOutAsItWentIn) {
    Outcome got;
    ASSERT_TRUE(unpack(pack(sample_outcome()), got));
    EXPECT_EQ(got.status, 7u);
    EXPECT_EQ(got.after, After::ends);
    EXPECT_EQ(got.notes.from_library.text, "library");
    EXPECT_EQ(got.notes.from_library.status, 5u);
    EXPECT_EQ(got.notes.failure.text, "");
    EXPECT_EQ(got.notes.remark.text, "a remark: 3:x");
    EXPECT_TRUE(got.notes.remark.is_missing_locally);
    EXPECT_EQ(got.notes.hint, "hint");
    EXPECT_EQ(got.notes.aftermath, "aftermath");
    EXPECT_EQ(got.said, (std::vector<std::string>{"one", "", "three\n"}));
    EXPECT_EQ(got.written.output, "output\n");
    EXPECT_EQ(got.written.log, "");
    EXPECT_EQ(got.written.trace, std::string("trace\0", 6));
}

TEST(WorkerRecords, WhatIsCutOrHasMoreBehindItIsNone) {
    const std::string whole = pack(sample_outcome());
    Outcome outcome;
    Job job;
    for (std::size_t length = 0; length < whole.size(); ++length)
        EXPECT_FALSE(unpack(std::string_view(whole).substr(0, length), outcome)) << length;
    EXPECT_FALSE(unpack(whole + "x", outcome));
    EXPECT_FALSE(unpack("99999999999999999999:", job));
    EXPECT_FALSE(unpack("1:a1:b1:z", job));
}

}  // namespace
