// SPDX-License-Identifier: Apache-2.0
// Owners as numbers: NFSv4 names them by text (RFC 8881 section 5.9).
#pragma once

#include <cstdint>
#include <string_view>

namespace nfstdm::nfs4 {

constexpr uint32_t kNobody = 65534;  // an owner that is not known here

// Digits are the number itself; of "name@domain" the system's own list knows the name; anything else is nobody. What
// the system was asked once is remembered.
uint32_t user_number(std::string_view owner);
uint32_t group_number(std::string_view owner);

}  // namespace nfstdm::nfs4
