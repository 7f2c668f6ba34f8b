// SPDX-License-Identifier: Apache-2.0
// What the grammars share: the shapes that option words come in.
#pragma once

#include <cstdint>
#include <span>

#include "tslwnfs/options/words.h"

// Shows every letter of the option words at hand to examine, which tells whether it knows the letter; the words
// themselves are taken.
void take_letters(Words &words, bool (*examine)(char letter));

// A word, a letter that no option has; an option whose value is missing.
void object_to_unknown(std::string_view word);
void object_to_letter(char letter);
void object_to_lone(std::string_view option);

// Takes the option words at hand, which mean nothing.
void skip_options(Words &words);

// Takes up to two operands into fname and fname1 (maximum 1 or 2); words left over are a usage error.
ParseOutcome take_operands(Words &words, int maximum);

// An option word whose next word goes to target.
struct ValueOption {
    std::string_view word;
    const char **target;
};

// Takes the option words at hand; a value that is missing or begins with "-" is a usage error, unknown option words
// are skipped.
ParseOutcome take_value_options(Words &words, std::span<const ValueOption> options);

// An option word with what it sets. Without a value, set is called with null.
struct SettingOption {
    std::string_view word;
    bool has_value;
    void (*set)(const char *value);
};

// Takes the option word at hand. One whose value is missing, and an unknown one, is skipped.
void take_setting(Words &words, std::span<const SettingOption> options);

// Decimal conversions as the C library makes them, leading digits only, cut to 32 bits. A text that is no such number
// is objected to as the value of its option; consequence: what becomes of it, before the number.
int32_t decimal(std::string_view option, const char *text);
uint32_t unsigned_decimal(std::string_view option, const char *text, std::string_view consequence = "was read as");

// Whether a text is a decimal number of 32 bits as a whole.
bool is_decimal(std::string_view text);
