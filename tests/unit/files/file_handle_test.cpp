// SPDX-License-Identifier: Apache-2.0
#include <gtest/gtest.h>

#include <algorithm>
#include <string_view>

#include "nfstdm/volume/volume.h"

namespace nfstdm::test {
namespace {

FileHandle handle_of(std::string_view bytes) {
    FileHandle handle;
    handle.size = static_cast<uint8_t>(bytes.size());
    std::copy(bytes.begin(), bytes.end(), handle.bytes.begin());
    return handle;
}

TEST(FileHandleDigest, IsTheSameInEveryProcessAndRun) {
    EXPECT_EQ(digest_of(handle_of("a")), 0xaf63dc4c8601ec8cU);
    EXPECT_EQ(digest_of(handle_of("foobar")), 0x85944171f73967e8U);
}

TEST(FileHandleDigest, IsNeverWhatStandsForUnknown) {
    EXPECT_EQ(digest_of(handle_of("\xd5\x6b\xb9\x53\x42\x87\x08\x36")), 1U);
}

}  // namespace
}  // namespace nfstdm::test
