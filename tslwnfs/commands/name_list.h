// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

// Names of a directory's entries.
using NameList = std::vector<std::string>;
