// SPDX-License-Identifier: Apache-2.0
// A module for RPCSEC_GSS whose contexts are made of nothing: a proof is a sum, and what is wrapped is turned over
// between a header and a proof.
#pragma once

#include "nfstdm/rpc/auth/gss_interface.h"
#include "tests/unit/rpc/scripted_server.h"

namespace nfstdm::test {

struct FakeGss {
    NfstdmGssTrouble create_trouble = kGssTroubleOther;
    bool create_fails = false;
    NfstdmGssTrouble step_trouble = kGssTroubleOther;
    bool step_fails = false;
    unsigned rounds = 1;      // answers of the server that it takes
    uint32_t seconds = 3600;  // that a context lives
    int alive = 0;            // contexts
    int given = 0;            // pieces of memory that were not given back
    int made = 0;             // contexts, over all
};

// The one there is; a test begins with a new one.
FakeGss &fake_gss();
const NfstdmGssModule &fake_gss_module();

Bytes fake_proof(std::span<const std::byte> message);
Bytes fake_wrapped(std::span<const std::byte> message);

}  // namespace nfstdm::test
