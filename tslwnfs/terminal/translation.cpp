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

// How much is tried for a line, whatever it holds: names in it come from servers. What would take more stays English.
struct Effort {
    std::size_t steps = 1'000'000;
    unsigned depth = 32;  // texts within texts

    bool spend() { return steps > 0 && steps-- > 0; }
};

// What a hole may stand for, character by character. Neither what lines are joined with nor half of a pair of
// parentheses stands within what is kept: then it is more than one thing. A blank at an end is that of another
// language's punctuation.
class Value {
  public:
    explicit Value(char hole) : is_kept_(is_kept(hole)) {}

    // False when neither this value nor a longer one will do.
    bool take(char c) {
        if (c == ' ' && (last_ == '\0' || (is_kept_ && (last_ == ';' || last_ == ':')))) return false;
        depth_ += c == '(' ? 1 : c == ')' ? -1 : 0;
        last_ = c;
        return depth_ >= 0;
    }
    bool fits() const { return depth_ == 0 && last_ != ' '; }

  private:
    bool is_kept_;
    char last_ = '\0';
    int depth_ = 0;
};

// The text of a pattern in front of its first hole.
std::string_view before_hole(std::string_view pattern) {
    std::size_t length = 0;
    while (length < pattern.size() && !begins_with_hole(pattern.substr(length)))
        ++length;
    return pattern.substr(0, length);
}

// Whether a text is one of the pattern's, each hole standing for as little as it can; values then has what they stand
// for.
bool is_of(std::string_view pattern, std::string_view text, Values &values, Effort &effort) {
    const auto own = before_hole(pattern);
    if (!effort.spend() || !text.starts_with(own)) return false;
    pattern.remove_prefix(own.size());
    text.remove_prefix(own.size());
    if (pattern.empty()) return text.empty();
    const char hole = pattern[1];
    pattern.remove_prefix(kHole);
    Value value(hole);
    for (std::size_t length = 1; length <= text.size(); ++length) {
        if (!effort.spend() || !value.take(text[length - 1])) return false;
        const bool may_end = value.fits() && (!pattern.empty() || length == text.size());
        if (!may_end || !is_of(pattern, text.substr(length), values, effort)) continue;
        values[hole] = text.substr(0, length);
        return true;
    }
    return false;
}

// Whether a text ends as the pattern does, which most others do not.
bool ends_as(std::string_view pattern, std::string_view text) {
    const auto hole = pattern.rfind('}');
    return text.ends_with(hole == std::string_view::npos ? pattern : pattern.substr(hole + 1));
}

// How much of a pattern is its own.
std::size_t own_length(std::string_view pattern) {
    std::size_t length = 0;
    for (; !pattern.empty(); pattern.remove_prefix(begins_with_hole(pattern) ? kHole : 1))
        length += begins_with_hole(pattern) ? 0 : 1;
    return length;
}

std::string translated(std::string_view line, Effort &effort);

std::string filled(std::string_view pattern, const Values &values, Effort &effort) {
    std::string text;
    while (!pattern.empty()) {
        const bool hole = begins_with_hole(pattern);
        const auto value = hole ? values.find(pattern[1]) : values.end();
        if (value != values.end()) {
            text += is_kept(pattern[1]) ? std::string(value->second) : translated(value->second, effort);
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

std::string translated(std::string_view line, Effort &effort) {
    if (effort.depth == 0) return std::string(line);
    const Translation *best = nullptr;
    Values values;
    for (const auto &row : translations(message_language())) {
        // What says more is what was meant.
        if (row.is_piece || (best != nullptr && own_length(row.english) <= own_length(best->english))) continue;
        Values found;
        if (!ends_as(row.english, line) || !is_of(row.english, line, found, effort)) continue;
        best = &row;
        values = found;
    }
    const auto text = best != nullptr ? shown(*best) : std::nullopt;
    if (!text) return std::string(line);
    --effort.depth;
    auto said = filled(*text, values, effort);
    ++effort.depth;
    return said;
}

}  // namespace

std::span<const Translation> translations(std::string_view language) {
    if (language == "de") return kGerman;
    if (language == "fr") return kFrench;
    if (language == "ja") return kJapanese;
    return {};
}

std::string translated(std::string_view line) {
    Effort effort;
    return translated(line, effort);
}

std::string in_words(std::string_view english, std::initializer_list<std::string_view> values) {
    Values named;
    for (const auto &value : values)
        named.emplace(static_cast<char>('1' + named.size()), value);
    const auto table = translations(message_language());
    const auto row = std::ranges::find(table, english, &Translation::english);
    const auto text = row != table.end() ? shown(*row) : std::nullopt;
    Effort effort;
    return filled(text ? *text : english, named, effort);
}

}  // namespace terminal
