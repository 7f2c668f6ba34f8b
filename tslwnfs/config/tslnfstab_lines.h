// SPDX-License-Identifier: Apache-2.0
// The line grammar of tslnfstab: what every reader and rewriter of the file sees in it.
//
// Settings of one server stand between two marker lines, which are comments to the client. A block holds one "server"
// line; the n-th server line of the file is taken to lie in the n-th block.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "nfstdm/mounts/setting_scanner.h"

using nfstdm::kBlockBegin;
using nfstdm::kBlockEnd;

constexpr std::size_t kLineMaximum = 1023;  // characters, the line feed included; a longer line counts as several

// The lines of a text, each with its line feed, which only the last one may lack. A line of more than maximum
// characters is given in pieces of that length. The views are valid as long as the text.
std::vector<std::string_view> split_lines(std::string_view text, std::size_t maximum = kLineMaximum);

// What has to be put behind a text so that a line can follow: a last line without a line feed needs one.
std::string_view separator_behind(std::string_view text);

// A line without its line feed.
std::string_view without_line_feed(std::string_view line);

// Markers are recognised in the first column only and take nothing behind them. The line may end in a line feed.
bool is_block_begin(std::string_view line);
bool is_block_end(std::string_view line);

// What is left of a line when leading blanks and tabs are cut off, without the line feed; empty for a blank line and
// for a comment, which carry nothing.
std::string_view line_content(std::string_view line);

struct SettingLine {
    std::string_view key;    // up to the first ":"
    std::string_view value;  // the word behind it, up to a blank or "#"; a tab is part of it. Empty for none.

    bool is_server() const { return key.starts_with("server"); }
    bool is_rdmaport() const { return key.starts_with("rdmaport"); }
    bool is_server(std::string_view name) const { return is_server() && !value.empty() && value == name; }
};

// Nothing for blank lines, comments and lines without a key.
std::optional<SettingLine> parse_setting(std::string_view line);
