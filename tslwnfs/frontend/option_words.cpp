// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/frontend/option_words.h"

#include <algorithm>
#include <cstdlib>

#include "tslwnfs/frontend/options.h"

void take_letters(Words &words, void (*examine)(char letter)) {
    while (words.at_option()) {
        for (const char *letter = words.take() + 1; *letter != '\0'; ++letter)
            examine(*letter);
    }
}

void skip_options(Words &words) {
    while (words.at_option())
        words.take();
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
        words.take();
        if (known == options.end()) continue;
        if (words.done() || words.at_option()) return ParseOutcome::usage;
        *known->target = words.take();
    }
    return ParseOutcome::accepted;
}

void take_setting(Words &words, std::span<const SettingOption> options) {
    const auto known =
        std::find_if(options.begin(), options.end(), [&](const auto &option) { return words.is(option.word); });
    words.take();
    if (known == options.end()) return;
    const char *value = known->has_value ? words.take() : nullptr;
    if (value != nullptr || !known->has_value) known->set(value);
}

int32_t decimal(const char *text) {
    return static_cast<int32_t>(std::strtol(text, nullptr, 10));
}

uint32_t unsigned_decimal(const char *text) {
    return static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
}
