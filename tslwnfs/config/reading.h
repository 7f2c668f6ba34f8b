// SPDX-License-Identifier: Apache-2.0
// tslnfstab as the storage library will read it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The mount points of a configuration, as they stand there.
std::vector<std::string> mount_points_of(std::string_view file);
// Those of the configuration file; none when it cannot be read.
std::vector<std::string> configured_mount_points();

// What is wrong with a configuration, or is not used, each with its line.
std::vector<std::string> problems_of(std::string_view file);
