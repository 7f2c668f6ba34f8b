// SPDX-License-Identifier: Apache-2.0
// Records of numbers, one behind the other, each as what sets it apart from the one before: of the entries of a
// directory most numbers are alike, or nearly, so that millions of them take few bytes each.
//
// A record is a mask of the numbers that differ, and their differences: the sign in the lowest bit, seven bits a byte.
#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace nfstdm {

template <std::size_t kCount>
using Numbers = std::array<uint64_t, kCount>;

// Of a number in bytes of seven bits, at most.
constexpr std::size_t kNumberBytes = 10;

// Writes a number in bytes of seven bits, and gives the place behind it.
inline char *put_number(char *at, uint64_t number) {
    constexpr uint64_t kMore = 0x80;
    for (; number >= kMore; number >>= 7)
        *at++ = static_cast<char>(static_cast<unsigned char>(number | kMore));
    *at++ = static_cast<char>(static_cast<unsigned char>(number));
    return at;
}

// bytes: what put_number() wrote stands in front of them, and is taken away.
inline uint64_t take_number(std::string_view &bytes) {
    uint64_t number = 0;
    for (unsigned shift = 0;; shift += 7) {
        assert(!bytes.empty());
        const auto byte = static_cast<unsigned char>(bytes.front());
        bytes.remove_prefix(1);
        number |= uint64_t{byte & 0x7FU} << shift;
        if (byte < 0x80) return number;
    }
}

// Appends what sets numbers apart from those before.
template <std::size_t kCount>
void append_differences(std::string &bytes, const Numbers<kCount> &before, const Numbers<kCount> &numbers) {
    static_assert(kCount <= 64);
    uint64_t mask = 0;
    for (std::size_t i = 0; i < kCount; ++i)
        mask |= uint64_t{numbers[i] != before[i]} << i;
    std::array<char, (kCount + 1) * kNumberBytes> record;
    char *end = put_number(record.data(), mask);
    for (std::size_t i = 0; i < kCount; ++i) {
        if (numbers[i] == before[i]) continue;
        const uint64_t difference = numbers[i] - before[i];
        end = put_number(end, difference << 1 ^ (0 - (difference >> 63)));
    }
    bytes.append(record.data(), end);
}

// Makes of the numbers before those that append_differences() told of in front of the bytes, and takes that away.
template <std::size_t kCount>
void take_differences(std::string_view &bytes, Numbers<kCount> &numbers) {
    const uint64_t mask = take_number(bytes);
    for (std::size_t i = 0; i < kCount; ++i) {
        if ((mask >> i & 1) == 0) continue;
        const uint64_t signed_difference = take_number(bytes);
        numbers[i] += signed_difference >> 1 ^ (0 - (signed_difference & 1));
    }
}

}  // namespace nfstdm
