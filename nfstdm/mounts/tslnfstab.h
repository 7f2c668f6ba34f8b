// SPDX-License-Identifier: Apache-2.0
// Reads tslnfstab: key words and values, whatever stands on one line or on several.
//
// A line may hold any number of "key: value" settings; "#" ends it. A setting belongs to the server named by the last
// "server" key. uid and gid settings directly ahead of a "server" key belong to that server, and so does everything
// between a block's begin marker and its first "server" key: both shapes are written by this system.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "nfstdm/volume/server_config.h"

namespace nfstdm {

struct Tslnfstab {
    std::vector<ServerConfig> servers;
    std::vector<std::string> remarks;  // what was wrong or is not used, each with its line number
};

// Never fails: a value that cannot be read is remarked upon and makes its own server unusable (ServerConfig::problem).
Tslnfstab read_tslnfstab(std::string_view text);

}  // namespace nfstdm
