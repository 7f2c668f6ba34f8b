// SPDX-License-Identifier: Apache-2.0
// Whether an address of the host is one to reach it by.
#pragma once

#include <cstdint>

#include "platform/addresses.h"

enum AddressUse : uint32_t { kUsable = 0, kUnusable = 1, kNotFound = 2 };

// Looks an address text of a family (2, 10, anything else) up. Returns an AddressUse: unusable are the loopback
// addresses, the link-local ones of IPv6, and every text that holds "169.254", wherever in it that stands. A text that
// is not found is remarked upon in the output.
uint32_t check_ip_type(NetworkSource &network, int family, const char *address);
