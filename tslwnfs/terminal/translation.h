// SPDX-License-Identifier: Apache-2.0
// What is said at the terminal, in the language of messages. Lines are put together in English, by the utility and by
// the storage library, and stay English in traces; they are translated here, when they are said. What no table has a
// row for, names and words that are typed among it, stays as it is, and so does what the locale's codeset lacks
// characters for.
//
// The tables are catalogue/reasons.LANGUAGE.def.
#pragma once

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

namespace terminal {

// A line, in the language of messages.
std::string translated(std::string_view line);

// The text of one row, known by its English text, with what stands for its {1}, {2} and so on.
std::string in_words(std::string_view english, std::initializer_list<std::string_view> values);

// One row of a table.
struct Translation {
    std::string_view english, text;
    bool is_piece;  // no line is made of it
};

// The table of a language, as "de"; empty when there is none.
std::span<const Translation> translations(std::string_view language);

}  // namespace terminal
