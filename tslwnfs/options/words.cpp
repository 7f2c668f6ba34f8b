// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/options/words.h"

#include <algorithm>

Words::Words(std::span<char *> all) : all_(all), seen_(all.size()) {
    if (seen_ > 1 && all_.back() == std::string_view("-y")) --seen_;
    move_to(1);
}

const char *Words::take() {
    const char *word = current();
    if (word != nullptr) ++position_;
    return word;
}

bool Words::take_if(std::string_view word) {
    if (!is(word)) return false;
    ++position_;
    return true;
}

void Words::move_to(std::size_t position) {
    position_ = std::min(position, seen_);
}

std::span<char *> Words::take_rest() {
    const std::span<char *> rest = all_.subspan(position_);
    position_ = seen_;
    return rest;
}
