// SPDX-License-Identifier: Apache-2.0
// The shell command by which wnfsenable puts the storage library into place.
#pragma once

#include <optional>
#include <string>
#include <string_view>

// Both names end in one blank, and so does the command. Nothing for a name that the shell would not take as it stands:
// copying to somewhere else is worse than not copying.
std::optional<std::string> library_copy_command(std::string_view source, std::string_view destination);
