// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/storage/sparse_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/stream.h"
#include "tests/support/redirected_stream.h"
#include "tests/support/temporary_directory.h"

namespace {

std::span<const std::byte> bytes_of(const std::string &text) {
    return std::as_bytes(std::span(text));
}

TEST(SparseFile, HasEveryByteAndItsSizeWhereverZerosStand) {
    const TemporaryDirectory directory;
    const std::string path = directory / "file";
    for (const std::size_t zeros_from : {0, 1, 4095, 4096, 5000, 12288})
        for (const std::size_t zeros_until : {5001, 8192, 12287, 16384, 20000}) {
            std::string text(20000, 'x');
            if (zeros_until > zeros_from)
                text.replace(zeros_from, zeros_until - zeros_from, zeros_until - zeros_from, '\0');
            Stream stream = open_stream(path.c_str(), "w");
            ASSERT_TRUE(write_without_zeros(stream.get(), bytes_of(text)));
            ASSERT_TRUE(end_sparse_file(stream.get(), text.size()));
            ASSERT_TRUE(close_stream(stream));
            EXPECT_EQ(read_file(path), text) << zeros_from << " " << zeros_until;
        }
}

TEST(SparseFile, TakesNoRoomForZeros) {
    const TemporaryDirectory directory;
    const std::string path = directory / "file";
    Stream stream = open_stream(path.c_str(), "w");
    ASSERT_TRUE(may_have_holes(stream.get()));
    ASSERT_TRUE(write_without_zeros(stream.get(), bytes_of(std::string(4 << 20, '\0'))));
    ASSERT_TRUE(leave_hole(stream.get(), 8 << 20));
    ASSERT_TRUE(end_sparse_file(stream.get(), 9 << 20));
    struct stat status;
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 9 << 20);
    EXPECT_LT(status.st_blocks * 512, 1 << 20);
}

TEST(SparseFile, IsNoDevice) {
    const Stream stream = open_stream("/dev/null", "w");
    EXPECT_FALSE(may_have_holes(stream.get()));
}

}  // namespace
