// SPDX-License-Identifier: Apache-2.0
#include "tslwnfs/options/strict.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <iterator>
#include <string>
#include <vector>

#include "platform/environment.h"
#include "tslwnfs/output/trace.h"
#include "tslwnfs/terminal/screen.h"

namespace {

constexpr std::array<std::string_view, 5> kWords = {"names", "location", "status", "options", "modes"};

std::bitset<kWords.size()> chosen;
bool objected = false;
std::vector<std::string> outcomes;  // of objections that are no errors

std::string_view without_blanks(std::string_view word) {
    constexpr std::string_view kBlanks = " \t";
    const std::size_t begin = std::min(word.find_first_not_of(kBlanks), word.size());
    return word.substr(begin, word.find_last_not_of(kBlanks) + 1 - begin);
}

void choose(std::string_view word) {
    const auto *const known = std::find(kWords.begin(), kWords.end(), word);
    if (word == "all") {
        chosen.set();
    } else if (known != kWords.end()) {
        chosen.set(static_cast<std::size_t>(std::distance(kWords.begin(), known)));
    } else if (!word.empty()) {
        terminal::say("warning: TSLWNFS_STRICT: \"" + std::string(word) +
                      "\" is none of names, location, status, options, modes, all");
    }
}

}  // namespace

void read_strictness() {
    constexpr std::size_t kLongest = 1024;  // characters
    chosen.reset();
    objected = false;
    outcomes.clear();
    std::string list = platform_environment("TSLWNFS_STRICT", kLongest).value_or("");
    for (std::string_view rest = list; !rest.empty();) {
        const std::string_view word = rest.substr(0, rest.find(','));
        choose(without_blanks(word));
        rest.remove_prefix(std::min(rest.size(), word.size() + 1));
    }
}

bool is_strict(Strict word) {
    return chosen.test(static_cast<std::size_t>(word));
}

void object_to(std::string_view word, std::string_view why, std::string_view outcome) {
    if (!is_strict(Strict::options)) {
        outcomes.push_back(std::string(word) + " " + std::string(outcome));
        return;
    }
    objected = true;
    trace_failure("get_options", "%s %s (TSLWNFS_STRICT)", std::string(word).c_str(), std::string(why).c_str());
}

bool has_objection() {
    return objected;
}

void warn_of_objections(std::string_view command) {
    for (const auto &outcome : outcomes)
        terminal::say("warning: " + std::string(command) + ": " + outcome);
    outcomes.clear();
}
