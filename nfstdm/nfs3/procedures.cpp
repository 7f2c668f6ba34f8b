// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/nfs3/procedures.h"

#include <algorithm>
#include <array>
#include <cassert>

#include "nfstdm/nfs3/fields.h"
#include "nfstdm/xdr/words.h"

namespace nfstdm::nfs3 {

namespace {

using xdr::kHyper;
using xdr::kWord;

constexpr std::size_t kStatus = kWord;
constexpr std::size_t kVerifier = kVerifierSize;
constexpr std::size_t kPost = kPostAttributesMaximum;
constexpr std::size_t kMade = kStatus + kPostHandleMaximum + kPost + kWccMaximum;
constexpr std::size_t kHandle = kWord + kHandleMaximum;
// Some servers count a directory's answer without its head, or go over by an entry.
constexpr std::size_t kDirectory = kStatus + kPost + kVerifier + 4096;

constexpr NfsStatus kNever = NfsStatus::ok;  // no answer has to be understood as "done before"

constexpr auto kProcedures = std::to_array<ProcedureRow>({
    {Procedure::getattr, "GETATTR", true, kNever, kStatus + kAttributesSize},
    {Procedure::setattr, "SETATTR", true, kNever, kStatus + kWccMaximum},
    {Procedure::lookup, "LOOKUP", true, kNever, kStatus + kHandle + 2 * kPost},
    {Procedure::readlink, "READLINK", true, kNever, kStatus + kPost + kWord + kTargetMaximum},
    {Procedure::read, "READ", true, kNever, kStatus + kPost + 3 * kWord},
    {Procedure::write, "WRITE", true, kNever, kStatus + kWccMaximum + 2 * kWord + kVerifier},
    {Procedure::create, "CREATE", false, NfsStatus::exist, kMade},
    {Procedure::mkdir, "MKDIR", false, NfsStatus::exist, kMade},
    {Procedure::remove, "REMOVE", false, NfsStatus::noent, kStatus + kWccMaximum},
    {Procedure::rmdir, "RMDIR", false, NfsStatus::noent, kStatus + kWccMaximum},
    {Procedure::readdir, "READDIR", true, kNever, kDirectory},
    {Procedure::readdirplus, "READDIRPLUS", true, kNever, kDirectory},
    {Procedure::fsstat, "FSSTAT", true, kNever, kStatus + kPost + 6 * kHyper + kWord},
    {Procedure::fsinfo, "FSINFO", true, kNever, kStatus + kPost + 7 * kWord + kHyper + 2 * kWord + kWord},
    {Procedure::commit, "COMMIT", true, kNever, kStatus + kWccMaximum + kVerifier},
});

}  // namespace

std::span<const ProcedureRow> procedure_table() {
    return kProcedures;
}

const ProcedureRow &row_of(Procedure procedure) {
    const auto row = std::find_if(kProcedures.begin(), kProcedures.end(),
                                  [procedure](const ProcedureRow &each) { return each.number == procedure; });
    assert(row != kProcedures.end());
    return *row;
}

}  // namespace nfstdm::nfs3
