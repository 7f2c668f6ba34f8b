// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/store/handles.h"

#include <gtest/gtest.h>

namespace {

using loopnfsd::decode_handle;
using loopnfsd::encode_handle;
using loopnfsd::FileKey;
using Names = std::vector<std::string>;

constexpr FileKey kKey{7, 2049, 123456789, 0x0123456789ABCDEF};

TEST(Handle, DecodesToTheKeyItWasMadeFrom) {
    EXPECT_EQ(encode_handle(kKey).size(), loopnfsd::kHandleSize);
    EXPECT_EQ(decode_handle(encode_handle(kKey)), kKey);
}

TEST(Handle, MayBeFilledUpToTheLargestSizeOfTheProtocol) {
    EXPECT_EQ(decode_handle(encode_handle(kKey, 64)), kKey);
    EXPECT_EQ(decode_handle(encode_handle(kKey, 65)), std::nullopt);
    EXPECT_EQ(decode_handle(encode_handle(kKey, 31)), std::nullopt);
    EXPECT_EQ(decode_handle(encode_handle(kKey, 0)), std::nullopt);
}

TEST(Handle, OfAnotherMakeIsRefused) {
    auto mark = encode_handle(kKey);
    mark[0] ^= std::byte{1};
    EXPECT_EQ(decode_handle(mark), std::nullopt);
    auto filling = encode_handle(kKey, 40);
    filling[39] = std::byte{1};
    EXPECT_EQ(decode_handle(filling), std::nullopt);
}

TEST(Handle, WithAnyBitTurnedNeverMeansTheSameObject) {
    const auto honest = encode_handle(kKey);
    for (std::size_t bit = 0; bit < honest.size() * 8; ++bit) {
        auto turned = honest;
        turned[bit / 8] ^= static_cast<std::byte>(1 << bit % 8);
        EXPECT_NE(decode_handle(turned), kKey) << bit;
    }
}

TEST(NameTable, KnowsTheNamesFromTheRootDown) {
    loopnfsd::NameTable table;
    const FileKey root{1, 1, 1, 1};
    const FileKey directory{1, 1, 2, 1};
    const FileKey file{1, 1, 3, 1};
    table.remember_root(root);
    table.remember(directory, root, "d");
    table.remember(file, directory, "f");
    EXPECT_EQ(table.path_of(root), Names{});
    EXPECT_EQ(table.path_of(file), (Names{"d", "f"}));
    table.remember(file, root, "g");
    EXPECT_EQ(table.path_of(file), Names{"g"});
    EXPECT_EQ(table.parent_of(root), root);
    table.forget(file);
    EXPECT_EQ(table.path_of(file), std::nullopt);
}

TEST(NameTable, DoesNotFollowARingOfDirectories) {
    loopnfsd::NameTable table;
    const FileKey one{1, 1, 2, 1};
    const FileKey other{1, 1, 3, 1};
    table.remember(one, other, "a");
    table.remember(other, one, "b");
    EXPECT_EQ(table.path_of(one), std::nullopt);
}

}  // namespace
