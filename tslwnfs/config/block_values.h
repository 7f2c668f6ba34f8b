// SPDX-License-Identifier: Apache-2.0
// The values of a server's block: how they are written, and what the storage library will make of them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct ServerBlock;

struct BlockSetting {
    std::string_view key;
    std::string value;
};

// The settings of a block in the order in which they are written: the user and the group ahead of the server line, for
// which readers look behind the begin marker.
std::vector<BlockSetting> settings_of(const ServerBlock &server);

// Those of what mount adds: a server, as far as it was told, and one export.
std::vector<BlockSetting> mount_settings_of(ServerBlock server, const char *export_path, const char *mount_point);

// The block as it stands in the file, from marker to marker.
std::string server_block_text(const ServerBlock &server);

// The settings as lines: a path stands behind its local address, a mount point behind its export.
std::string lines_of(const std::vector<BlockSetting> &settings);

// The settings as mount writes them, each on a line of its own, without markers.
std::string mount_text(const std::vector<BlockSetting> &settings);

// False when a value holds a control character, which is traced as a record of function. A line feed would let a value
// go on as settings of its own.
[[nodiscard]] bool are_writable(const char *function, const std::vector<BlockSetting> &settings);

// The values that will be read otherwise than they were given, each with the reason.
std::vector<std::string> misreadings_of(const std::vector<BlockSetting> &settings);

// Why the storage library will not use a server with these settings; empty when it will.
// What reads as it is and surprises all the same: mount points with capitals.
std::vector<std::string> doubts_about(const std::vector<BlockSetting> &settings);

std::string problem_of(const std::vector<BlockSetting> &settings);
