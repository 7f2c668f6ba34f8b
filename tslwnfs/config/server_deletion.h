// SPDX-License-Identifier: Apache-2.0
// What delete_server leaves of a configuration.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tslwnfs/config/configuration_lock.h"

struct ServerDeletion {
    std::string file;
    bool holds_server = false;        // whether the server's own line went
    std::vector<std::string> others;  // the names on the other server lines that went

    bool is_as_meant() const { return holds_server && others.empty(); }
};

// Leaves out the block whose number is that of the first line of the server among all server lines, from its begin
// marker to the next end marker or the end of the file; everything else is kept byte for byte. Where a file has server
// lines outside blocks the numbers disagree, and the block of another server goes: the rule is as old as the file's
// form, in which each block holds one server line. Nothing for a server that has no line.
std::optional<ServerDeletion> without_server(std::string_view file, std::string_view server);

// Puts a new block at the end of the configuration and takes out the one that the server has, in one step. not_there:
// the server has none, or it cannot be taken out; nothing was changed, and the new block is to be added. refused: it
// would cost another server its block without a way back. The reasons were told as those of delete_server.
enum class Replacement { done, not_there, refused };
Replacement replace_server(const char *server, std::string_view block, ConfigurationLock &lock);
