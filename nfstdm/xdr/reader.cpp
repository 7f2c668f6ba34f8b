// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/xdr/reader.h"

#include "nfstdm/xdr/words.h"

namespace nfstdm::xdr {

bool Reader::fail() {
    failed_ = true;
    bytes_ = {};
    return false;
}

bool Reader::take(std::size_t size, std::span<const std::byte> &value) {
    value = {};
    if (failed_ || size > bytes_.size()) return fail();
    value = bytes_.first(size);
    bytes_ = bytes_.subspan(size);
    return true;
}

bool Reader::get_u32(uint32_t &value) {
    value = 0;
    std::span<const std::byte> raw;
    if (!take(kWord, raw)) return false;
    for (const std::byte byte : raw)
        value = value << 8 | std::to_integer<uint32_t>(byte);
    return true;
}

bool Reader::get_u64(uint64_t &value) {
    value = 0;
    uint32_t high = 0;
    uint32_t low = 0;
    if (!get_u32(high) || !get_u32(low)) return false;
    value = uint64_t{high} << 32 | low;
    return true;
}

bool Reader::get_bool(bool &value) {
    uint32_t word = 0;
    value = false;
    if (!get_u32(word)) return false;
    if (word > 1) return fail();
    value = word == 1;
    return true;
}

bool Reader::get_opaque(std::span<const std::byte> &value, std::size_t maximum) {
    value = {};
    uint32_t size = 0;
    if (!get_u32(size)) return false;
    if (size > maximum) return fail();
    return get_fixed(value, size);
}

bool Reader::get_string(std::string_view &value, std::size_t maximum) {
    std::span<const std::byte> raw;
    const bool got = get_opaque(raw, maximum);
    value = {reinterpret_cast<const char *>(raw.data()), raw.size()};
    return got;
}

bool Reader::get_fixed(std::span<const std::byte> &value, std::size_t size) {
    std::span<const std::byte> padding;
    if (!take(size, value)) return false;
    if (take(padding_of(size), padding)) return true;
    value = {};
    return false;
}

bool Reader::skip(std::size_t size) {
    std::span<const std::byte> skipped;
    return take(size, skipped);
}

}  // namespace nfstdm::xdr
