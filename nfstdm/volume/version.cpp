// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/volume/version.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

namespace nfstdm {

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

struct VersionRow {
    std::string_view word;
    NfsVersion version;
};

constexpr auto kVersions = std::to_array<VersionRow>({
    {"3", {3, 0, false}},
    {"4", {4, 0, false}},
    {"4.1", {4, 1, false}},
    {"4.2", {4, 2, false}},
    {"pnfs", {4, 1, true}},
});

}  // namespace

Result<NfsVersion> parse_version(std::string_view text) {
    std::string word(text);
    std::transform(word.begin(), word.end(), word.begin(), lower);
    if (word.starts_with("nfs")) word.erase(0, 3);
    if (word.starts_with('v')) word.erase(0, 1);
    const auto row =
        std::find_if(kVersions.begin(), kVersions.end(), [&word](const VersionRow &each) { return each.word == word; });
    if (row != kVersions.end()) return row->version;
    std::string reason = "version " + std::string(text) + " is not supported, ";
    reason += word == "4.0" ? "it has no sessions; nfsv4.1 has" : "nfsv3, nfsv4, nfsv4.1 and nfsv4.2 are";
    return Status{EPROTONOSUPPORT, std::move(reason)};
}

}  // namespace nfstdm
