// SPDX-License-Identifier: Apache-2.0
#include "nfstdm/mounts/setting_scanner.h"

#include <algorithm>

#include "nfstdm/mounts/tslnfstab_keys.h"

namespace nfstdm {
namespace {

constexpr std::string_view kBlank = " \t\r\f\v";

void skip_blanks(std::string_view &rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlank), rest.size()));
}

std::string_view take_until(std::string_view &rest, std::string_view stops) {
    const auto taken = rest.substr(0, rest.find_first_of(stops));
    rest.remove_prefix(taken.size());
    return taken;
}

bool is_text(std::string_view key) {
    const KeyRow *row = find_key(key);
    return row != nullptr && row->value == KeyRow::Value::text;
}

// Whether the next word is a key with its colon, as it stands behind a value that was left out.
bool is_at_key(std::string_view rest) {
    std::string_view word = take_until(rest, kBlank);
    if (!word.ends_with(':')) return false;
    word.remove_suffix(1);
    return find_key(word) != nullptr;
}

// What nobody looks at has the whole line when it begins that, and ends at the next key otherwise.
std::string_view take_text(std::string_view &rest, bool has_line) {
    if (has_line) return take_until(rest, {});
    const std::string_view whole = rest;
    while (!rest.empty() && !is_at_key(rest)) {
        take_until(rest, kBlank);
        skip_blanks(rest);
    }
    return whole.substr(0, whole.size() - rest.size());
}

// A key ends at its colon, which may stand apart from it; the value is the next word, colons and all.
Setting take_setting(std::string_view &rest, unsigned line, bool begins_line) {
    Setting setting;
    setting.line = line;
    setting.key = take_until(rest, " \t\r\f\v:");
    skip_blanks(rest);
    if (!rest.starts_with(':')) {
        setting.kind = Setting::Kind::unreadable;
        return setting;
    }
    rest.remove_prefix(1);
    skip_blanks(rest);
    if (is_text(setting.key)) {
        setting.value = take_text(rest, begins_line);
    } else if (!is_at_key(rest)) {
        setting.value = take_until(rest, kBlank);
    }
    return setting;
}

void scan_line(std::string_view text, unsigned line, std::vector<Setting> &settings) {
    if (text == kBlockBegin || text == kBlockEnd) {
        const auto kind = text == kBlockBegin ? Setting::Kind::block_begin : Setting::Kind::block_end;
        settings.push_back({kind, {}, {}, line});
        return;
    }
    auto rest = text.substr(0, text.find('#'));
    bool begins_line = true;
    for (skip_blanks(rest); !rest.empty(); skip_blanks(rest)) {
        settings.push_back(take_setting(rest, line, begins_line));
        begins_line = false;
    }
}

}  // namespace

std::vector<Setting> scan_settings(std::string_view text) {
    std::vector<Setting> settings;
    for (unsigned line = 1; !text.empty(); ++line) {
        const auto end = std::min(text.find('\n'), text.size());
        scan_line(text.substr(0, end), line, settings);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return settings;
}

}  // namespace nfstdm
