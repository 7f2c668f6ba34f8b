// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/remote/security.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include "nfstdm/rpc/message/constants.h"

namespace nfstdm::remote {

namespace {

constexpr uint32_t kKrb5 = 390003;

constexpr std::array<SecurityRow, 5> kSecurities = {{
    {"none", rpc::kAuthNone, std::nullopt},
    {"sys", rpc::kAuthSys, std::nullopt},
    {"krb5", kKrb5, rpc::GssService::none},
    {"krb5i", kKrb5 + 1, rpc::GssService::integrity},
    {"krb5p", kKrb5 + 2, rpc::GssService::privacy},
}};

bool lists(const std::vector<uint32_t> &flavours, uint32_t flavour) {
    return std::ranges::find(flavours, flavour) != flavours.end();
}

// An empty list names nothing to choose from; "none" in it says that a mere statement of who asks is not looked at.
bool offers(const std::vector<uint32_t> &flavours, const SecurityRow &security) {
    return flavours.empty() || lists(flavours, security.flavour) ||
           (!security.service && lists(flavours, rpc::kAuthNone));
}

}  // namespace

std::span<const SecurityRow> securities() {
    return kSecurities;
}

const SecurityRow *find_security(std::string_view word) {
    const auto *const row = std::ranges::find(kSecurities, word, &SecurityRow::word);
    return row == kSecurities.end() ? nullptr : row;
}

uint32_t krb5_flavour(uint32_t service) {
    return kKrb5 + service - static_cast<uint32_t>(rpc::GssService::none);
}

std::string flavour_names(const std::vector<uint32_t> &flavours) {
    std::string names;
    for (const uint32_t flavour : flavours) {
        const auto *const row = std::ranges::find(kSecurities, flavour, &SecurityRow::flavour);
        names += names.empty() ? "" : ", ";
        names += row == kSecurities.end() ? "flavour " + std::to_string(flavour) : std::string(row->word);
    }
    return names;
}

const std::string &wanted_security(const ServerConfig &server, const ServerExport &share) {
    return share.security.empty() ? server.security_default : share.security;
}

Result<std::string> choose_security(const std::string &wanted, const std::vector<uint32_t> &offered,
                                    const std::string &export_path) {
    const std::string first = wanted.empty() ? "sys" : wanted;
    const SecurityRow *const row = find_security(first);
    if (row != nullptr && offers(offered, *row)) return first;
    if (wanted.empty())
        for (auto strongest = kSecurities.rbegin(); strongest != kSecurities.rend(); ++strongest)
            if (offers(offered, *strongest)) return std::string(strongest->word);
    return Status{EACCES, "export " + export_path + " is not offered with security " + first + ", only with " +
                              flavour_names(offered)};
}

}  // namespace nfstdm::remote
