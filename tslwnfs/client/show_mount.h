// SPDX-License-Identifier: Apache-2.0
// showmount with the server's answer from elsewhere.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

// Gives a server's export list as it came (RFC 1813, 5.2.5, from the list's first word). False, with the reason in
// words, when there is none.
using ExportQuery = std::function<bool(const char *server, std::vector<std::byte> &list, std::string &reason)>;

// Prints the list of a server, or that there is none. Returns 0 or 1.
uint32_t show_mount(const char *server, const ExportQuery &query);

// The list laid out in the pieces in which tslwnfs_expout takes it.
std::vector<uint8_t> in_pieces(std::span<const std::byte> list);
