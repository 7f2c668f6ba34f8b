// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/xdr/writer.h"

#include <limits>

namespace nfstdm::xdr {

bool Writer::room_for(std::size_t size) {
    if (!failed_ && size > limit_ - bytes_.size()) failed_ = true;
    return !failed_;
}

void Writer::put_u32(uint32_t value) {
    if (!room_for(4)) return;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes_.push_back(static_cast<std::byte>(value >> shift & 0xFF));
}

void Writer::put_u64(uint64_t value) {
    put_u32(static_cast<uint32_t>(value >> 32));
    put_u32(static_cast<uint32_t>(value));
}

void Writer::put_opaque(std::span<const std::byte> value) {
    if (value.size() > std::numeric_limits<uint32_t>::max()) {
        failed_ = true;
        return;
    }
    put_u32(static_cast<uint32_t>(value.size()));
    put_fixed(value);
}

void Writer::put_string(std::string_view value) {
    put_opaque(std::as_bytes(std::span{value}));
}

void Writer::put_fixed(std::span<const std::byte> value) {
    if (!room_for(value.size()) || !room_for(value.size() + (4 - value.size() % 4) % 4)) return;
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    bytes_.resize((bytes_.size() + 3) & ~std::size_t{3});
}

void Writer::patch_u32(std::size_t position, uint32_t value) {
    if (position > bytes_.size() || bytes_.size() - position < 4) return;
    for (std::size_t i = 0; i < 4; ++i)
        bytes_[position + i] = static_cast<std::byte>(value >> (24 - 8 * i) & 0xFF);
}

}  // namespace nfstdm::xdr
