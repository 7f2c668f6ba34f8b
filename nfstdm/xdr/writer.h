// SPDX-License-Identifier: Apache-2.0
// Writes External Data Representation (RFC 4506).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

namespace nfstdm::xdr {

// Appends to a buffer of its own, which may not grow past a limit: a put that would do so puts the writer into a failed
// state in which it writes nothing more.
class Writer {
  public:
    static constexpr std::size_t kLimit = std::size_t{64} << 20;

    explicit Writer(std::size_t limit = kLimit) : limit_(limit) {}

    void put_u32(uint32_t value);
    void put_u64(uint64_t value);
    void put_bool(bool value) { put_u32(value ? 1 : 0); }
    // Length, bytes, padding; a value longer than its maximum is a failure like an overrun of the limit.
    void put_opaque(std::span<const std::byte> value, std::size_t maximum = kLimit);
    void put_string(std::string_view value, std::size_t maximum = kLimit);
    void put_fixed(std::span<const std::byte> value);  // bytes, padding

    // Replaces a word written earlier, at a byte position.
    void patch_u32(std::size_t position, uint32_t value);

    // Makes room for this many bytes at once; without it room is made as they come.
    void reserve(std::size_t size) { bytes_.reserve(size); }

    bool ok() const { return !failed_; }
    std::size_t size() const { return bytes_.size(); }
    std::span<const std::byte> bytes() const { return bytes_; }
    std::vector<std::byte> take() { return std::move(bytes_); }

  private:
    // Room for size more bytes, or the empty span in the failed state.
    std::span<std::byte> grow(std::size_t size);

    std::vector<std::byte> bytes_;
    std::size_t limit_;
    bool failed_ = false;
};

}  // namespace nfstdm::xdr
