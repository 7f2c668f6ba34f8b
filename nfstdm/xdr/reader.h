// SPDX-License-Identifier: Apache-2.0
// Reads External Data Representation (RFC 4506) from bytes that are not trusted.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace nfstdm::xdr {

// Every get either succeeds or puts the reader into a failed state in which all further gets fail; what a failed get
// leaves in its result is zero or empty. Views point into the bytes given and live as long as those.
class Reader {
  public:
    explicit Reader(std::span<const std::byte> bytes) : bytes_(bytes) {}

    bool get_u32(uint32_t &value);
    bool get_u64(uint64_t &value);
    bool get_bool(bool &value);  // anything but 0 and 1 fails

    // Variable-length opaque and string: a length of at most maximum, the bytes, zero to three bytes of padding.
    bool get_opaque(std::span<const std::byte> &value, std::size_t maximum);
    bool get_string(std::string_view &value, std::size_t maximum);

    // Fixed-length opaque.
    bool get_fixed(std::span<const std::byte> &value, std::size_t size);
    bool skip(std::size_t size);

    std::size_t left() const { return bytes_.size(); }
    bool ok() const { return !failed_; }
    // All went well and nothing is left over.
    bool finished() const { return ok() && bytes_.empty(); }

  private:
    bool take(std::size_t size, std::span<const std::byte> &value);
    bool fail();

    std::span<const std::byte> bytes_;
    bool failed_ = false;
};

}  // namespace nfstdm::xdr
