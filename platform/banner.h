// SPDX-License-Identifier: Apache-2.0
// The line that introduces a program of the installation.
#pragma once

#include <string>
#include <string_view>

// The program's name with version and status, ending in a line feed; at most 255 characters.
std::string platform_banner(std::string_view program);
