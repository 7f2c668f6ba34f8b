// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/xdr/writer.h"

#include <algorithm>
#include <limits>

namespace nfstdm::xdr {

namespace {

void store(std::span<std::byte> place, uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i)
        place[i] = static_cast<std::byte>(value >> (24 - 8 * i) & 0xFF);
}

}  // namespace

std::span<std::byte> Writer::grow(std::size_t size) {
    if (failed_ || size > limit_ - bytes_.size()) {
        failed_ = true;
        return {};
    }
    bytes_.resize(bytes_.size() + size);
    return std::span{bytes_}.last(size);
}

void Writer::put_u32(uint32_t value) {
    if (const auto place = grow(4); !place.empty()) store(place, value);
}

void Writer::put_u64(uint64_t value) {
    put_u32(static_cast<uint32_t>(value >> 32));
    put_u32(static_cast<uint32_t>(value));
}

void Writer::put_opaque(std::span<const std::byte> value, std::size_t maximum) {
    if (value.size() > std::min<std::size_t>(maximum, std::numeric_limits<uint32_t>::max())) {
        failed_ = true;
        return;
    }
    put_u32(static_cast<uint32_t>(value.size()));
    put_fixed(value);
}

void Writer::put_string(std::string_view value, std::size_t maximum) {
    put_opaque(std::as_bytes(std::span{value}), maximum);
}

void Writer::put_fixed(std::span<const std::byte> value) {
    const std::size_t padding = (4 - value.size() % 4) % 4;
    // What grow() adds is zero, so the padding is.
    const auto place = grow(value.size() + padding);
    if (!place.empty()) std::copy(value.begin(), value.end(), place.begin());
}

void Writer::patch_u32(std::size_t position, uint32_t value) {
    if (position > bytes_.size() || bytes_.size() - position < 4) return;
    store(std::span{bytes_}.subspan(position, 4), value);
}

}  // namespace nfstdm::xdr
