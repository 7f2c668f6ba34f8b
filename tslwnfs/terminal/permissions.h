// SPDX-License-Identifier: Apache-2.0
// Who may do what the system refuses.
#pragma once

#include <string>
#include <string_view>

namespace terminal {

// A sentence about the file at a local path, or about the nearest directory above it when that keeps the caller out or
// the file is not there. Of the home's tslnfstab it tells who may read or change it. Empty when nobody knows.
std::string who_may(std::string_view path);

}  // namespace terminal
