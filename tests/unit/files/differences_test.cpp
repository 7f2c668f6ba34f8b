// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/base/differences.h"

#include <gtest/gtest.h>

#include <vector>

namespace nfstdm::test {
namespace {

using Three = Numbers<3>;

TEST(Differences, GiveTheNumbersBackWhateverTheyAre) {
    std::vector<Three> records;
    for (const uint64_t number : {uint64_t{0}, uint64_t{1}, uint64_t{63}, uint64_t{64}, uint64_t{127}, uint64_t{128},
                                  uint64_t{1} << 32, uint64_t{1} << 63, UINT64_MAX, uint64_t{5}})
        for (const uint64_t other : {number, uint64_t{0}, UINT64_MAX, uint64_t{1} << 63})
            records.push_back({number, other, number - other});
    std::string bytes;
    Three before = {};
    for (const Three &record : records) {
        append_differences(bytes, before, record);
        before = record;
    }
    std::string_view rest = bytes;
    Three read = {};
    for (const Three &record : records) {
        take_differences(rest, read);
        EXPECT_EQ(read, record);
    }
    EXPECT_TRUE(rest.empty());
}

TEST(Differences, OfEqualRecordsTakeOneByteAndOfNearOnesLittleMore) {
    std::string bytes;
    append_differences(bytes, Three{1, 2, 3}, Three{1, 2, 3});
    EXPECT_EQ(bytes.size(), 1U);
    bytes.clear();
    append_differences(bytes, Three{1, UINT64_MAX, 3}, Three{0, UINT64_MAX, 67});
    EXPECT_EQ(bytes.size(), 1U + 1 + 2) << "the mask, one less, sixty-four more";
}

}  // namespace
}  // namespace nfstdm::test
