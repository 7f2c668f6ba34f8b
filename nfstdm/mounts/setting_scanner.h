// SPDX-License-Identifier: Apache-2.0
// Cuts tslnfstab into its settings.
#pragma once

#include <string_view>
#include <vector>

namespace nfstdm {

// What a server's block stands between, each alone on its line. Comments to whoever does not know them.
inline constexpr std::string_view kBlockBegin = "#<server block begin>";
inline constexpr std::string_view kBlockEnd = "#<server block end>";

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
