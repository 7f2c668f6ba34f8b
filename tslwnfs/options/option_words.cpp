// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/options/option_words.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <string_view>

#include "tslwnfs/options/options.h"
#include "tslwnfs/options/strict.h"

namespace {

constexpr std::string_view kUnknown = "is no option of this command";

template <class Number>
void check_number(std::string_view text) {
    Number number = 0;
    const auto read = std::from_chars(text.data(), text.data() + text.size(), number);
    if (read.ec != std::errc() || read.ptr != text.data() + text.size()) object_to(text, "is no number, or too large");
}

}  // namespace

void object_to_letter(char letter) {
    object_to({std::array{'-', letter}.data(), 2}, kUnknown);
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
        object_to(words.take(), kUnknown);
}

ParseOutcome take_operands(Words &words, int maximum) {
    fname = words.take();
    if (maximum > 1) fname1 = words.take();
    return words.done() ? ParseOutcome::accepted : ParseOutcome::usage;
}

ParseOutcome take_value_options(Words &words, std::span<const ValueOption> options) {
    while (words.at_option()) {
        const auto known =
            std::find_if(options.begin(), options.end(), [&](const auto &option) { return words.is(option.word); });
        const char *word = words.take();
        if (known == options.end()) {
            object_to(word, kUnknown);
            continue;
        }
        if (words.done() || words.at_option()) return ParseOutcome::usage;
        *known->target = words.take();
    }
    return ParseOutcome::accepted;
}

void take_setting(Words &words, std::span<const SettingOption> options) {
    const auto known =
        std::find_if(options.begin(), options.end(), [&](const auto &option) { return words.is(option.word); });
    const char *word = words.take();
    if (known == options.end()) return object_to(word, kUnknown);
    const char *value = known->has_value ? words.take() : nullptr;
    if (value == nullptr && known->has_value) return object_to(word, "lacks its value");
    known->set(value);
}

int32_t decimal(const char *text) {
    check_number<int32_t>(text);
    return static_cast<int32_t>(std::strtol(text, nullptr, 10));
}

uint32_t unsigned_decimal(const char *text) {
    check_number<uint32_t>(text);
    return static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
}
