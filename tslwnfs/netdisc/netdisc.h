// SPDX-License-Identifier: Apache-2.0
// The host's usable addresses and their subnet prefixes.
#pragma once

#include <cstdint>

// Lists the addresses of family ip_type (2, 10, or 0 for both), with with_subnets 1 their prefixes too.
uint32_t enum_local_ips(int32_t with_subnets);
uint32_t getsubnetmask(const char *address);
uint32_t network_discovery();
