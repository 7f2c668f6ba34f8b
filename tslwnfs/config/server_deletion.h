// SPDX-License-Identifier: Apache-2.0
// What delete_server leaves of a configuration.
#pragma once

#include <optional>
#include <string>
#include <string_view>

struct ServerDeletion {
    std::string file;
    bool counts_agree = true;  // whether as many blocks as server lines began up to the server's own line
};

// Leaves out the block whose number is that of the first line of the server among all server lines, from its begin
// marker to the next end marker or the end of the file; everything else is kept byte for byte. Where a file has server
// lines outside blocks the numbers disagree, and the block of another server goes: the rule is as old as the file's
// form, in which each block holds one server line. Nothing for a server that has no line.
std::optional<ServerDeletion> without_server(std::string_view file, std::string_view server);
