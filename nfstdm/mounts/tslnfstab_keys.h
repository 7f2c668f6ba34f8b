// SPDX-License-Identifier: Apache-2.0
// The keys of tslnfstab: the one list of them.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace nfstdm {

enum class Key : uint8_t {
    server,
    rdmaport,
    local,
    path,
    exported,
    mount,
    security,
    security_default,
    principal_host,
    uid,
    gid,
    version,
    mnt_timeout,
    io_timeout,
    nconnect,
    mountport,
    nfsport,
    transport_security,
    tls_ca,
    tls_certificate,
    tls_key,
    community,
    management,
};

struct KeyRow {
    // word: one that is not empty. word_or_none: it may be left out. number: in a range. text: nobody looks at it, so
    // that it may hold anything.
    enum class Value : uint8_t { word, word_or_none, number, text };
    Key key;
    Value value;
    bool is_prefix;  // longer words that begin like this one mean the same
    std::string_view word;
    uint32_t least = 0, most = 0;  // of a number
};

std::span<const KeyRow> tslnfstab_keys();

// The row of a key as it stands in the file, without its colon; null for a word that is none.
const KeyRow *find_key(std::string_view word);

// The key that a word in capitals was probably meant to be; null when no letter of another size makes it one.
const KeyRow *find_key_in_capitals(std::string_view word);

}  // namespace nfstdm
