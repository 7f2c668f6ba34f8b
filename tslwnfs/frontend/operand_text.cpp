// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/operand_text.h"

#include <cctype>

#include "tslwnfs/options/strict.h"
#include "tslwnfs/storage/resolve.h"
#include "tslwnfs/storage/wildcard.h"

bool ends_in_separator(std::string_view text) {
    return text.ends_with('/') || text.ends_with('\\');
}

std::string text_of(const Operand &operand) {
    std::string text = operand.shown();
    const bool separated = ends_in_separator(text);
    const bool is_root = text.size() > 1 && text[text.size() - 2] == ':';
    if (operand.is_typed() && separated && !is_root) text.pop_back();
    return text;
}

std::string as_built(const std::string &text) {
    return is_strict(Strict::names) ? text : lowered(text);
}

bool has_wildcard(const std::string &text) {
    return text.find_first_of("*?") != std::string::npos;
}

void lower_drive_path(std::string &path) {
    if (path.size() < 2 || std::isalpha(static_cast<unsigned char>(path[0])) == 0 || path[1] != ':') return;
    if (is_strict(Strict::names)) return;
    if (path.find(':', 2) == std::string::npos || lowered(path).find("nfs:") != std::string::npos) return;
    tolower_string(path.data());
}

SplitPath::SplitPath(std::string_view path) {
    const std::size_t separator = last_separator(path);
    if (separator == std::string_view::npos) {
        name = path;
    } else {
        directory = path.substr(0, separator);
        name = path.substr(separator + 1);
    }
}
