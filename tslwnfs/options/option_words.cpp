// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/options/option_words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <string>
#include <string_view>

#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"
#include "tslwnfs/terminal/reasons.h"

namespace {

template <class Number>
bool is_number(std::string_view text) {
    Number number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    return read.ec == std::errc() && read.ptr == text.data() + text.size();
}

template <class Number>
Number checked(std::string_view option, std::string_view text, Number number, std::string_view consequence) {
    if (!is_number<Number>(text)) {
        const std::string word = std::string(option) + " " + std::string(text);
        object_to(word, "is no number, or too large", std::string(consequence) + " " + std::to_string(number));
    }
    return number;
}

}  // namespace

void object_to_unknown(std::string_view word) {
    object_to(word, "is no option of this command", "is not known and was skipped");
}

void object_to_letter(char letter) {
    object_to_unknown({std::array{'-', letter}.data(), 2});
}

void object_to_lone(std::string_view option) {
    object_to(option, "lacks its value", "lacks its value and was skipped");
}

void take_letters(Words &words, bool (*examine)(char letter)) {
    while (words.at_option()) {
        for (const char *letter = words.take() + 1; *letter != '\0'; ++letter) {
            if (!examine(*letter)) object_to_letter(*letter);
        }
    }
}

void skip_options(Words &words) {
    while (words.at_option())
        object_to_unknown(words.take());
}

ParseOutcome take_operands(Words &words, int maximum) {
    fname = words.take();
    if (maximum > 1) fname1 = words.take();
    if (words.done()) return ParseOutcome::accepted;
    const std::string word = words.current();
    terminal::note_failure(words.at_option() ? word + " stands behind the operands"
                                             : "one operand too many: " + word + " (quote wildcards)");
    return ParseOutcome::usage;
}

ParseOutcome take_value_options(Words &words, std::span<const ValueOption> options) {
    while (words.at_option()) {
        const auto known =
            std::find_if(options.begin(), options.end(), [&](const auto &option) { return words.is(option.word); });
        const char *word = words.take();
        if (known == options.end()) {
            object_to_unknown(word);
            continue;
        }
        if (words.done() || words.at_option()) {
            terminal::note_failure(std::string(word) + " lacks its value");
            return ParseOutcome::usage;
        }
        *known->target = words.take();
    }
    return ParseOutcome::accepted;
}

void take_setting(Words &words, std::span<const SettingOption> options) {
    const auto known =
        std::find_if(options.begin(), options.end(), [&](const auto &option) { return words.is(option.word); });
    const char *word = words.take();
    if (known == options.end()) return object_to_unknown(word);
    const char *value = known->has_value ? words.take() : nullptr;
    if (value == nullptr && known->has_value) return object_to_lone(word);
    known->set(value);
}

int32_t decimal(std::string_view option, const char *text) {
    return checked(option, text, static_cast<int32_t>(std::strtol(text, nullptr, 10)), "was read as");
}

uint32_t unsigned_decimal(std::string_view option, const char *text, std::string_view consequence) {
    return checked(option, text, static_cast<uint32_t>(std::strtoul(text, nullptr, 10)), consequence);
}

bool is_decimal(std::string_view text) {
    return is_number<int32_t>(text);
}
