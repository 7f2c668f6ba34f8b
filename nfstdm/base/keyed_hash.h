// SPDX-License-Identifier: Apache-2.0
// A hash of 128 bits whose key nobody outside the process knows (SipHash-2-4-128): whoever may choose the texts cannot
// choose two that come out the same, and of texts that nobody chose no two do.
#pragma once

#include <cstdint>
#include <string_view>

namespace nfstdm {

struct Hash128 {
    uint64_t low = 0;
    uint64_t high = 0;
};

struct HashKey {
    uint64_t low = 0;
    uint64_t high = 0;
};

Hash128 keyed_hash(const HashKey &key, std::string_view text);

// The process's own key, made when it is first asked for.
const HashKey &process_hash_key();

}  // namespace nfstdm
