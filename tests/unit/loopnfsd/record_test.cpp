// SPDX-License-Identifier: Apache-2.0
#include "tools/loopnfsd/wire/record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "nfstdm/nfs3/constants.h"
#include "nfstdm/rpc/message/constants.h"

namespace {

using loopnfsd::RecordReader;

std::string fragment(std::string_view data, bool last = true) {
    const auto mark = static_cast<uint32_t>(data.size()) | (last ? nfstdm::rpc::kLastFragment : 0);
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(mark >> shift);
    return bytes.append(data);
}

// Feeds a stream in pieces and gives the records it holds; "too large" in the place of one that was refused.
std::vector<std::string> records(RecordReader &reader, std::string_view stream, std::size_t piece) {
    std::vector<std::string> found;
    while (!stream.empty()) {
        const auto space = reader.space();
        const std::size_t size = std::min({piece, stream.size(), space.size()});
        std::ranges::copy(std::as_bytes(std::span(stream.substr(0, size))), space.begin());
        reader.received(size);
        stream.remove_prefix(size);
        std::span<const std::byte> record;
        RecordReader::Next next = reader.next(record);
        for (; next == RecordReader::Next::record; next = reader.next(record))
            found.emplace_back(reinterpret_cast<const char *>(record.data()), record.size());
        if (next == RecordReader::Next::too_large) return found.emplace_back("too large"), found;
    }
    return found;
}

TEST(RecordReader, GivesTheSameRecordsHoweverTheStreamIsCut) {
    const std::string large(300'000, 'l');
    const std::string stream = fragment("one") + fragment("") + fragment("t", false) + fragment("w", false) +
                               fragment("", false) + fragment("o") + fragment(large.substr(0, 1000), false) +
                               fragment(large.substr(1000)) + fragment("end");
    const std::vector<std::string> expected{"one", "", "two", large, "end"};
    for (const std::size_t piece : {1, 2, 3, 5, 7, 64, 1000, 4096, 65536, 1000000}) {
        RecordReader reader(large.size());
        EXPECT_EQ(records(reader, stream, piece), expected) << piece;
    }
}

TEST(RecordReader, GoesOnForManyRecordsInOneBuffer) {
    RecordReader reader(1000);
    std::string stream;
    for (int i = 0; i < 3000; ++i)
        stream += fragment(std::string(static_cast<std::size_t>(i) % 1000, 'x'));
    EXPECT_EQ(records(reader, stream, 977).size(), 3000U);
}

TEST(RecordReader, RefusesARecordBeyondItsMaximum) {
    RecordReader exact(8);
    EXPECT_EQ(records(exact, fragment("12345678"), 100), std::vector<std::string>{"12345678"});
    RecordReader one(8);
    EXPECT_EQ(records(one, fragment("123456789"), 100), std::vector<std::string>{"too large"});
    RecordReader several(8);
    EXPECT_EQ(records(several, fragment("12345", false) + fragment("6789"), 100),
              std::vector<std::string>{"too large"});
    RecordReader huge(8);
    EXPECT_EQ(records(huge, "\x7f\xff\xff\xff", 100), std::vector<std::string>{"too large"});
}

TEST(RecordReader, AlwaysHasSpace) {
    RecordReader reader(100'000);
    const std::string start = fragment(std::string(100'000, 'x')).substr(0, 70'000);
    EXPECT_TRUE(records(reader, start, 70'000).empty());
    EXPECT_FALSE(reader.space().empty());
}

}  // namespace
