// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/terminal/translation.h"

#include <langinfo.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>

#include "platform/catalogue.h"
#include "platform/codeset.h"

namespace terminal {
namespace {

// "{1}" stands for what is kept, "{a}" for text that is translated by itself.
constexpr std::size_t kHole = 3;  // characters of one

constexpr bool begins_with_hole(std::string_view pattern) {
    return pattern.size() >= kHole && pattern[0] == '{' && pattern[2] == '}';
}

constexpr bool is_kept(char hole) {
    return hole >= '0' && hole <= '9';
}

// How often each hole stands in a pattern, four bits a hole: "1" to "4", and behind them "a" to "d".
constexpr uint64_t holes_of(std::string_view pattern) {
    constexpr unsigned kBits = 4;
    uint64_t holes = 0;
    for (; !pattern.empty(); pattern.remove_prefix(begins_with_hole(pattern) ? kHole : 1)) {
        if (!begins_with_hole(pattern)) continue;
        const auto place = static_cast<unsigned>(is_kept(pattern[1]) ? pattern[1] - '1' : pattern[1] - 'a' + 4);
        holes += uint64_t{1} << (kBits * place);
    }
    return holes;
}

// A row whose holes are not the same on both sides does not compile.
consteval Translation row(std::string_view english, std::string_view text, bool is_piece) {
    if (holes_of(english) != holes_of(text)) throw std::logic_error("a translation has other holes");
    return {english, text, is_piece};
}

#define REASON(english, text) row(english, text, false),
#define PIECE(english, text) row(english, text, true),
constexpr Translation kGerman[] = {
#include "catalogue/reasons.de.def"
};
constexpr Translation kFrench[] = {
#include "catalogue/reasons.fr.def"
};
constexpr Translation kJapanese[] = {
#include "catalogue/reasons.ja.def"
};
#undef PIECE
#undef REASON

constexpr bool have_same_rows(std::span<const Translation> one, std::span<const Translation> other) {
    return std::equal(one.begin(), one.end(), other.begin(), other.end(), [](const auto &left, const auto &right) {
        return left.english == right.english && left.is_piece == right.is_piece;
    });
}

static_assert(have_same_rows(kGerman, kFrench) && have_same_rows(kGerman, kJapanese));

using Values = std::map<char, std::string_view>;  // what stands for the holes

// Neither what lines are joined with nor half of a pair of parentheses stands within what is kept: then it is more than
// one thing. A blank at an end is that of another language's punctuation.
bool may_stand_for(char hole, std::string_view value) {
    if (value.front() == ' ' || value.back() == ' ') return false;
    if (is_kept(hole) && (value.find("; ") != std::string_view::npos || value.find(": ") != std::string_view::npos))
        return false;
    int depth = 0;
    for (const char c : value) {
        depth += c == '(' ? 1 : c == ')' ? -1 : 0;
        if (depth < 0) return false;
    }
    return depth == 0;
}

// Whether a text is one of the pattern's; values then has what stands for its holes.
bool is_of(std::string_view pattern, std::string_view text, Values &values) {
    while (!pattern.empty() && !begins_with_hole(pattern)) {
        if (text.empty() || text.front() != pattern.front()) return false;
        pattern.remove_prefix(1);
        text.remove_prefix(1);
    }
    if (pattern.empty()) return text.empty();
    const char hole = pattern[1];
    pattern.remove_prefix(kHole);
    for (std::size_t length = pattern.empty() ? text.size() : 1; length > 0 && length <= text.size(); ++length) {
        const std::string_view value = text.substr(0, length);
        if (!is_of(pattern, text.substr(length), values) || !may_stand_for(hole, value)) continue;
        values[hole] = value;
        return true;
    }
    return false;
}

// How much of a pattern is its own.
std::size_t own_length(std::string_view pattern) {
    std::size_t length = 0;
    for (; !pattern.empty(); pattern.remove_prefix(begins_with_hole(pattern) ? kHole : 1))
        length += begins_with_hole(pattern) ? 0 : 1;
    return length;
}

std::string filled(std::string_view pattern, const Values &values) {
    std::string text;
    while (!pattern.empty()) {
        const bool hole = begins_with_hole(pattern);
        const auto value = hole ? values.find(pattern[1]) : values.end();
        if (value != values.end()) {
            text += is_kept(pattern[1]) ? std::string(value->second) : translated(value->second);
        } else {
            text += pattern.front();
        }
        pattern.remove_prefix(value != values.end() ? kHole : 1);
    }
    return text;
}

// A row's text as the locale's codeset has it; nothing when that lacks a character of it.
std::optional<std::string> shown(const Translation &row) {
    return text_in_codeset(std::string(row.text), nl_langinfo(CODESET));
}

}  // namespace

std::span<const Translation> translations(std::string_view language) {
    if (language == "de") return kGerman;
    if (language == "fr") return kFrench;
    if (language == "ja") return kJapanese;
    return {};
}

std::string translated(std::string_view line) {
    const Translation *best = nullptr;
    Values values;
    for (const auto &row : translations(message_language())) {
        Values found;
        // What says more is what was meant.
        if (row.is_piece || (best != nullptr && own_length(row.english) <= own_length(best->english))) continue;
        if (!is_of(row.english, line, found)) continue;
        best = &row;
        values = found;
    }
    const auto text = best != nullptr ? shown(*best) : std::nullopt;
    return text ? filled(*text, values) : std::string(line);
}

std::string in_words(std::string_view english, std::initializer_list<std::string_view> values) {
    Values named;
    for (const auto &value : values)
        named.emplace(static_cast<char>('1' + named.size()), value);
    const auto table = translations(message_language());
    const auto row = std::ranges::find(table, english, &Translation::english);
    const auto text = row != table.end() ? shown(*row) : std::nullopt;
    return filled(text ? *text : english, named);
}

}  // namespace terminal
