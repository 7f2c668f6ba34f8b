// SPDX-License-Identifier: Apache-2.0
// A COMPOUND (RFC 8881 section 16.2): several operations in one question, answered as far as the server got.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "nfstdm/nfs4/constants.h"
#include "nfstdm/nfs4/op_table.h"
#include "nfstdm/xdr/reader.h"
#include "nfstdm/xdr/words.h"
#include "nfstdm/xdr/writer.h"

namespace nfstdm::nfs4 {

// The arguments of a call.
class Compound {
  public:
    explicit Compound(uint32_t minor_version);

    // Appends an operation; its arguments follow.
    xdr::Writer &add(Op op);
    // Replaces the last word written, when what follows has decided it.
    std::size_t last_word() const { return call_.size() - xdr::kWord; }
    void patch(std::size_t position, uint32_t value) { call_.patch_u32(position, value); }

    // Results beside those that the rows count: opaque data that is not received straight into its place, entries.
    void expect(std::size_t bytes) { results_maximum_ += bytes; }

    bool ok() const { return call_.ok(); }
    unsigned operations() const { return operations_; }
    bool changes() const { return changes_; }  // some operation of it does
    std::size_t results_maximum() const { return results_maximum_; }
    // What is sent. Nothing may be added any more.
    std::vector<std::byte> take() { return call_.take(); }

  private:
    xdr::Writer call_;
    std::size_t count_at_;
    unsigned operations_ = 0;
    bool changes_ = false;
    std::size_t results_maximum_;
};

// The results of a compound, walked through operation by operation. The bytes must outlive the object.
class Results {
  public:
    explicit Results(std::span<const std::byte> bytes);

    // Moves on to the next operation's results, which must be this one's: false when it failed, or was never come to,
    // or when the answer makes no sense.
    bool next(Op op);
    // What the operation's results are read from, after next().
    xdr::Reader &reader() { return reader_; }

    // The status of the compound as a whole, and that of the operation that next() found failed; ok when none has.
    NfsStatus overall() const { return overall_; }
    NfsStatus failure() const { return failure_; }
    Op failed_op() const { return failed_op_; }
    // The whole answer was read, and what it says holds together.
    bool finished() const { return sound_ && reader_.finished() && left_ == 0 && overall_ == failure_; }

  private:
    xdr::Reader reader_;
    NfsStatus overall_ = NfsStatus::ok;
    NfsStatus failure_ = NfsStatus::ok;
    Op failed_op_{};
    uint32_t left_ = 0;  // operations
    bool sound_ = true;
};

}  // namespace nfstdm::nfs4
