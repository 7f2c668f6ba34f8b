// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/tslnfstab_keys.h"

#include <algorithm>
#include <limits>
#include <string>

namespace nfstdm {
namespace {

constexpr uint32_t kAny = std::numeric_limits<uint32_t>::max();
constexpr uint32_t kSecondsMaximum = 365 * 24 * 3600;
constexpr uint32_t kPortMaximum = 65535;

using Value = KeyRow::Value;

constexpr KeyRow kKeys[] = {
    {Key::server, Value::word, true, "server"},
    {Key::rdmaport, Value::number, true, "rdmaport", 0, kPortMaximum},
    {Key::local, Value::word_or_none, false, "local"},
    {Key::path, Value::word, false, "path"},
    {Key::exported, Value::word, false, "export"},
    {Key::mount, Value::word, false, "mount"},
    {Key::security, Value::word, false, "security"},
    {Key::security_default, Value::word, false, "security_default"},
    {Key::principal_host, Value::word, false, "principal_host"},
    {Key::uid, Value::number, false, "uid", 0, kAny},
    {Key::gid, Value::number, false, "gid", 0, kAny},
    {Key::version, Value::word, false, "version"},
    {Key::mnt_timeout, Value::number, false, "mnt_timeout", 1, kSecondsMaximum},
    {Key::io_timeout, Value::number, false, "io_timeout", 0, kSecondsMaximum},
    {Key::nconnect, Value::number, false, "nconnect", 1, 16},
    {Key::mountport, Value::number, false, "mountport", 1, kPortMaximum},
    {Key::nfsport, Value::number, false, "nfsport", 1, kPortMaximum},
    {Key::transport_security, Value::word, false, "transport_security"},
    {Key::tls_ca, Value::word, false, "tls_ca"},
    {Key::tls_certificate, Value::word, false, "tls_certificate"},
    {Key::tls_key, Value::word, false, "tls_key"},
    {Key::community, Value::text, false, "community"},
    {Key::management, Value::text, false, "management"},
};

}  // namespace

std::span<const KeyRow> tslnfstab_keys() {
    return kKeys;
}

const KeyRow *find_key(std::string_view word) {
    const auto found = std::ranges::find_if(
        kKeys, [word](const KeyRow &row) { return row.is_prefix ? word.starts_with(row.word) : word == row.word; });
    return found == std::end(kKeys) ? nullptr : &*found;
}

const KeyRow *find_key_in_capitals(std::string_view word) {
    std::string lowered(word);
    for (char &c : lowered)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return lowered == word ? nullptr : find_key(lowered);
}

}  // namespace nfstdm
