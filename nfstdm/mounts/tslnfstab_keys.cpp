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
    {Key::server, "server", Value::word, 0, 0, true},
    {Key::rdmaport, "rdmaport", Value::number, 0, kPortMaximum, true},
    {Key::local, "local", Value::word_or_none},
    {Key::path, "path"},
    {Key::exported, "export"},
    {Key::mount, "mount"},
    {Key::security, "security"},
    {Key::security_default, "security_default"},
    {Key::uid, "uid", Value::number, 0, kAny},
    {Key::gid, "gid", Value::number, 0, kAny},
    {Key::version, "version"},
    {Key::mnt_timeout, "mnt_timeout", Value::number, 1, kSecondsMaximum},
    {Key::io_timeout, "io_timeout", Value::number, 0, kSecondsMaximum},
    {Key::nconnect, "nconnect", Value::number, 1, 16},
    {Key::mountport, "mountport", Value::number, 1, kPortMaximum},
    {Key::nfsport, "nfsport", Value::number, 1, kPortMaximum},
    {Key::community, "community", Value::text},
    {Key::management, "management", Value::text},
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
