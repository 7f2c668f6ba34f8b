// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/xdr/writer.h"

#include <algorithm>
#include <limits>

#include "nfstdm/xdr/words.h"

namespace nfstdm::xdr {

std::span<std::byte> Writer::grow(std::size_t size) {
    if (failed_ || size > limit_ - bytes_.size()) {
        failed_ = true;
        return {};
    }
    bytes_.resize(bytes_.size() + size);
    return std::span{bytes_}.last(size);
}

void Writer::put_u32(uint32_t value) {
    if (const auto place = grow(kWord); !place.empty()) store_u32(place, value);
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
    // What grow() adds is zero, so the padding is.
    const auto place = grow(value.size() + padding_of(value.size()));
    if (!place.empty()) std::copy(value.begin(), value.end(), place.begin());
}

void Writer::patch_u32(std::size_t position, uint32_t value) {
    if (position > bytes_.size() || bytes_.size() - position < kWord) return;
    store_u32(std::span{bytes_}.subspan(position, kWord), value);
}

}  // namespace nfstdm::xdr
