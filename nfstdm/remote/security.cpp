// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/remote/security.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "nfstdm/rpc/message/constants.h"

namespace nfstdm::remote {

namespace {

struct SecurityRow {
    std::string_view word;
    uint32_t flavour;
};

constexpr std::array<SecurityRow, 5> kSecurities = {{
    {"none", rpc::kAuthNone},
    {"sys", rpc::kAuthSys},
    {"krb5", 390003},
    {"krb5i", 390004},
    {"krb5p", 390005},
}};

std::string flavour_name(uint32_t flavour) {
    const auto *const row = std::ranges::find(kSecurities, flavour, &SecurityRow::flavour);
    return row == kSecurities.end() ? "flavour " + std::to_string(flavour) : std::string(row->word);
}

}  // namespace

std::string flavour_names(const std::vector<uint32_t> &flavours) {
    std::string names;
    for (const uint32_t flavour : flavours)
        names += (names.empty() ? "" : ", ") + flavour_name(flavour);
    return names;
}

const std::string &wanted_security(const ServerConfig &server, const ServerExport &share) {
    static const std::string kDefault = "sys";
    if (!share.security.empty()) return share.security;
    return server.security_default.empty() ? kDefault : server.security_default;
}

bool offers(const std::vector<uint32_t> &flavours, const std::string &security) {
    const auto *const wanted = std::ranges::find(kSecurities, security, &SecurityRow::word);
    // An empty list names nothing to choose from; "none" in it says that the identity is not looked at.
    return flavours.empty() || std::ranges::any_of(flavours, [wanted](uint32_t flavour) {
               return flavour == rpc::kAuthNone || (wanted != kSecurities.end() && flavour == wanted->flavour);
           });
}

}  // namespace nfstdm::remote
