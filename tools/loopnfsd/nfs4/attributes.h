// SPDX-License-Identifier: Apache-2.0
// bitmap4 and fattr4 (RFC 8881 sections 3.3.7 and 5).
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/writer.h"
#include "tools/loopnfsd/base/nfs4_numbers.h"
#include "tools/loopnfsd/files/changed_attributes.h"
#include "tools/loopnfsd/files/shared_files.h"

namespace loopnfsd::nfs4 {

constexpr std::size_t kVerifierSize = 8;

// A set of attribute numbers. Those that no word here has room for are unknown to everybody.
class Bitmap {
  public:
    bool get(nfstdm::xdr::Reader &in);
    void put(nfstdm::xdr::Writer &out) const;

    bool has(unsigned number) const { return (words_.at(number / 32) >> number % 32 & 1) != 0; }
    void add(unsigned number) { words_.at(number / 32) |= 1U << number % 32; }
    bool only(const Bitmap &allowed) const;  // nothing that is not in the other
    bool operator==(const Bitmap &) const = default;

  private:
    static constexpr std::size_t kWords = 3;
    std::array<uint32_t, kWords> words_{};
    bool beyond_ = false;  // numbers above were given
};

// An object, as far as attributes tell of it.
struct Described {
    struct statx status {};
    std::vector<std::byte> handle;
    uint32_t export_id = 0;  // 0: of the directories that lead to the exports
    SharedFiles::Space space;
    uint32_t max_read = 0;
    uint32_t max_write = 0;
    uint32_t lease_seconds = 0;
    uint64_t change() const { return change_of(status); }
    static uint64_t change_of(const struct statx &status);
};

// The attributes that are wanted and known, as fattr4.
void put_attributes(nfstdm::xdr::Writer &out, const Bitmap &wanted, const Described &object);
// Whether any of them tells how full the file system is, which costs a system call.
bool wants_space(const Bitmap &wanted);

// fattr4 with what is to be set.
Status get_changes(nfstdm::xdr::Reader &in, ChangedAttributes &changed, Bitmap &given);

// Whether an object's attributes are the same as those in a fattr4 (VERIFY): ok or not_same, or why it cannot be told.
Status compare(nfstdm::xdr::Reader &in, const Described &object);

}  // namespace loopnfsd::nfs4
