// SPDX-License-Identifier: Apache-2.0
// Cuts tslnfstab into its settings.
#pragma once

#include <string_view>
#include <vector>

namespace nfstdm {

struct Setting {
    enum class Kind { setting, block_begin, block_end, unreadable };
    Kind kind = Kind::setting;
    std::string_view key;    // without its colon; the offending word when unreadable
    std::string_view value;  // empty when none follows on the line, or a key does
    unsigned line = 0;       // from 1
};

// The views point into the text.
std::vector<Setting> scan_settings(std::string_view text);

}  // namespace nfstdm
