// SPDX-License-Identifier: Apache-2.0
// The security flavour of a mount: what tslnfstab asks for and what the server offers (RFC 5531 section 8.2, RFC 2623
// section 2.2.2).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/base/status.h"
#include "nfstdm/rpc/auth/gss.h"
#include "nfstdm/volume/server_config.h"

namespace nfstdm::remote {

struct SecurityRow {
    std::string_view word;  // of tslnfstab
    uint32_t flavour;
    std::optional<rpc::GssService> service;  // of those that use Kerberos
};

// Weaker ones first.
std::span<const SecurityRow> securities();
// Null for a word that is none.
const SecurityRow *find_security(std::string_view word);

// The flavour of RPCSEC_GSS with Kerberos and this service, as lists of flavours name it.
uint32_t krb5_flavour(uint32_t service);

// "sys, krb5": flavours by their words.
std::string flavour_names(const std::vector<uint32_t> &flavours);

// What the export is to be used with: its own security, or the server's default; empty when neither says.
const std::string &wanted_security(const ServerConfig &server, const ServerExport &share);

// What to use an export with whose server lists these flavours: what is wanted, or sys where that is offered, or the
// strongest there is. Fails with EACCES when that can not be had.
Result<std::string> choose_security(const std::string &wanted, const std::vector<uint32_t> &offered,
                                    const std::string &export_path);

// What to say of an export that is refused with a flavour that the server offers.
inline constexpr char kMayWantAnotherTransport[] = ": it may want another transport_security";

}  // namespace nfstdm::remote
