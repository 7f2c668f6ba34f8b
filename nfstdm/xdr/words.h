// SPDX-License-Identifier: Apache-2.0
// The unit of External Data Representation (RFC 4506 section 3): everything is a multiple of four bytes, most
// significant byte first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace nfstdm::xdr {

constexpr std::size_t kWord = 4;  // bytes
constexpr std::size_t kHyper = 8;

// Bytes of zero that follow size bytes of opaque data.
constexpr std::size_t padding_of(std::size_t size) {
    return (kWord - size % kWord) % kWord;
}

// place: at least four bytes, of which the first four are set.
inline void store_u32(std::span<std::byte> place, uint32_t value) {
    for (std::size_t i = 0; i < kWord; ++i)
        place[i] = static_cast<std::byte>(value >> (24 - 8 * i) & 0xFF);
}

}  // namespace nfstdm::xdr
