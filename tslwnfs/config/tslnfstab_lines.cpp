// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/config/tslnfstab_lines.h"

#include <algorithm>

namespace {

std::string_view skip(std::string_view text, std::string_view characters) {
    return text.substr(std::min(text.find_first_not_of(characters), text.size()));
}

}  // namespace

std::vector<std::string_view> split_lines(std::string_view text, std::size_t maximum) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t feed = text.substr(0, maximum).find('\n');
        const std::size_t length = feed == std::string_view::npos ? std::min(maximum, text.size()) : feed + 1;
        lines.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return lines;
}

std::string_view separator_behind(std::string_view text) {
    return text.empty() || text.ends_with('\n') ? "" : "\n";
}

std::string_view without_line_feed(std::string_view line) {
    if (line.ends_with('\n')) line.remove_suffix(1);
    return line;
}

bool is_block_begin(std::string_view line) {
    return without_line_feed(line) == kBlockBegin;
}

bool is_block_end(std::string_view line) {
    return without_line_feed(line) == kBlockEnd;
}

std::string_view line_content(std::string_view line) {
    const std::string_view content = skip(without_line_feed(line), " \t");
    return content.starts_with('#') ? std::string_view() : content;
}

std::optional<SettingLine> parse_setting(std::string_view line) {
    const std::string_view content = line_content(line);
    const std::size_t colon = std::min(content.find(':'), content.size());
    if (colon == 0) return std::nullopt;
    const std::string_view rest = skip(content.substr(std::min(colon + 1, content.size())), " ");
    return SettingLine{content.substr(0, colon), rest.substr(0, rest.find_first_of(" #"))};
}
